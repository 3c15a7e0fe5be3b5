-- Wireshark/tshark dissector for the WAPI flavour of the Simple Config registration exchange:
-- EAP type 242, vendor 00:81:db, vendor type 1, then op-code, flags, the optional message length
-- and the attributes, decoded as Wireshark's WSC dissector decodes the Wi-Fi flavour.
--
-- Install: copy this file to the personal Lua plugin folder (Help > About > Folders; on Linux
-- ~/.local/lib/wireshark/plugins, `make install-wireshark-plugin`), or pass it to one run:
--   tshark -X lua_script:tools/wireshark/wapiwps.lua -r exchange.pcap -V
--
-- Wireshark 4.0 has no dissector table for EAP types, so this registers for EAP packets under
-- EAPOL (packet type 0), takes the frames of EAP type 242 and hands every other EAP frame to
-- Wireshark's own EAP dissector.

local p = Proto("wapiwps", "WAPI Simple Config")

local EAP_TYPE_WAPI = 242
local VENDOR_ID_WAPI = 0x0081DB
local FLAG_MF = 0x01 -- more fragments follow
local FLAG_LF = 0x02 -- message length field present
local FRAGMENT_TRAILER_LEN = 18 -- bytes after a fragmented message that are not part of it

local eap_codes = { [1] = "Request", [2] = "Response", [3] = "Success", [4] = "Failure" }
local opcodes = { [1] = "Start", [2] = "ACK", [3] = "NACK", [4] = "MSG", [5] = "Done" }
local message_types = {
    [0x04] = "M1", [0x05] = "M2", [0x06] = "M2D", [0x07] = "M3", [0x08] = "M4", [0x09] = "M5",
    [0x0A] = "M6", [0x0B] = "M7", [0x0C] = "M8", [0x0D] = "WSC_ACK", [0x0E] = "WSC_NACK",
    [0x0F] = "WSC_DONE",
}

-- Every attribute type: its name and how its value reads.
--   u8/u16/u32 numbers, text, bytes, nested (attributes inside), encrypted (IV + ciphertext),
--   public_key (first and temporary SM2 public keys, x and y each), msgtype, version
local attributes = {
    [0x1002] = { "Association State", "u16" },
    [0x1004] = { "Authentication Type Flags", "u16" },
    [0x1005] = { "Authenticator", "bytes" },
    [0x1008] = { "Config Methods", "u16" },
    [0x1009] = { "Configuration Error", "u16" },
    [0x100D] = { "Connection Type Flags", "u8" },
    [0x100E] = { "Credential", "nested" },
    [0x1010] = { "Encryption Type Flags", "u16" },
    [0x1011] = { "Device Name", "text" },
    [0x1012] = { "Device Password ID", "u16" },
    [0x1014] = { "E-Hash1", "bytes" },
    [0x1015] = { "E-Hash2", "bytes" },
    [0x1016] = { "E-SNonce1", "bytes" },
    [0x1017] = { "E-SNonce2", "bytes" },
    [0x1018] = { "Encrypted Settings", "encrypted" },
    [0x101A] = { "Enrollee Nonce", "bytes" },
    [0x101E] = { "Key Wrap Authenticator", "bytes" },
    [0x1020] = { "MAC Address", "bytes" },
    [0x1021] = { "Manufacturer", "text" },
    [0x1022] = { "Message Type", "msgtype" },
    [0x1023] = { "Model Name", "text" },
    [0x1024] = { "Model Number", "text" },
    [0x1027] = { "Network Key", "bytes" },
    [0x102D] = { "OS Version", "u32" },
    [0x1032] = { "Public Key", "public_key" },
    [0x1039] = { "Registrar Nonce", "bytes" },
    [0x103C] = { "RF Bands", "u8" },
    [0x103D] = { "R-Hash1", "bytes" },
    [0x103E] = { "R-Hash2", "bytes" },
    [0x103F] = { "R-SNonce1", "bytes" },
    [0x1040] = { "R-SNonce2", "bytes" },
    [0x1042] = { "Serial Number", "text" },
    [0x1044] = { "Simple Config State", "u8" },
    [0x1047] = { "UUID-E", "bytes" },
    [0x1048] = { "UUID-R", "bytes" },
    [0x104A] = { "Version", "version" },
    [0x104B] = { "X.509 Certificate Request", "nested" },
    [0x1054] = { "Primary Device Type", "bytes" },
    [0x1FF6] = { "Certificate Needed", "u8" },
    [0x1FF7] = { "Certificate List", "bytes" },
    [0x1FF8] = { "Identity Signature", "bytes" },
    [0x1FF9] = { "Certificate Mode", "u8" },
    [0x1FFE] = { "Certificate Identity", "bytes" },
    [0x1FFF] = { "Signing Public Key", "bytes" },
}

local attribute_names = {}
for type, info in pairs(attributes) do attribute_names[type] = info[1] end

local f = {
    eap_code = ProtoField.uint8("wapiwps.eap.code", "EAP Code", base.DEC, eap_codes),
    eap_id = ProtoField.uint8("wapiwps.eap.id", "EAP Identifier", base.DEC),
    eap_len = ProtoField.uint16("wapiwps.eap.len", "EAP Length", base.DEC),
    eap_type = ProtoField.uint8("wapiwps.eap.type", "EAP Type", base.DEC),
    vendor_id = ProtoField.uint24("wapiwps.vendor_id", "Vendor Id", base.HEX),
    vendor_type = ProtoField.uint32("wapiwps.vendor_type", "Vendor Type", base.DEC),
    opcode = ProtoField.uint8("wapiwps.opcode", "Op-Code", base.DEC, opcodes),
    flags = ProtoField.uint8("wapiwps.flags", "Flags", base.HEX),
    flag_mf = ProtoField.bool("wapiwps.flags.mf", "More Fragments", 8, nil, FLAG_MF),
    flag_lf = ProtoField.bool("wapiwps.flags.lf", "Length Field", 8, nil, FLAG_LF),
    msg_len = ProtoField.uint16("wapiwps.msglen", "Message Length", base.DEC),
    fragment = ProtoField.bytes("wapiwps.fragment", "Fragment"),
    reassembled = ProtoField.uint16("wapiwps.reassembled_len", "Reassembled Length"),
    trailer = ProtoField.bytes("wapiwps.fragment_trailer", "Fragment Trailer (not parsed)"),
    attr = ProtoField.none("wapiwps.attr", "Attribute"),
    attr_type = ProtoField.uint16("wapiwps.attr.type", "Type", base.HEX, attribute_names),
    attr_len = ProtoField.uint16("wapiwps.attr.len", "Length", base.DEC),
    msgtype = ProtoField.uint8("wapiwps.message_type", "Message Type", base.HEX, message_types),
    version = ProtoField.uint8("wapiwps.version", "Version", base.HEX),
    u8 = ProtoField.uint8("wapiwps.attr.u8", "Value", base.HEX),
    u16 = ProtoField.uint16("wapiwps.attr.u16", "Value", base.HEX),
    u32 = ProtoField.uint32("wapiwps.attr.u32", "Value", base.HEX),
    text = ProtoField.string("wapiwps.attr.text", "Value"),
    bytes = ProtoField.bytes("wapiwps.attr.bytes", "Value"),
    pk_x = ProtoField.bytes("wapiwps.public_key.x", "Public Key x"),
    pk_y = ProtoField.bytes("wapiwps.public_key.y", "Public Key y"),
    tpk_x = ProtoField.bytes("wapiwps.public_key.temp_x", "Temporary Public Key x"),
    tpk_y = ProtoField.bytes("wapiwps.public_key.temp_y", "Temporary Public Key y"),
    iv = ProtoField.bytes("wapiwps.encrypted.iv", "Initialisation Vector"),
    ciphertext = ProtoField.bytes("wapiwps.encrypted.data", "Ciphertext (SMS4-OFB)"),
}
p.fields = f

local e_unknown = ProtoExpert.new("wapiwps.attr.unknown", "Unknown attribute type",
                                  expert.group.UNDECODED, expert.severity.WARN)
local e_short = ProtoExpert.new("wapiwps.attr.short", "Attribute runs past the message",
                                expert.group.MALFORMED, expert.severity.ERROR)
local e_width = ProtoExpert.new("wapiwps.attr.width", "Attribute length unusual for its type",
                                expert.group.PROTOCOL, expert.severity.WARN)
p.experts = { e_unknown, e_short, e_width }

local fixed_width = { u8 = 1, u16 = 2, u32 = 4, msgtype = 1, version = 1, public_key = 128 }

local dissect_attributes

local function dissect_value(tvb, tree, kind, value_tvbr, len)
    if fixed_width[kind] and len ~= fixed_width[kind] then
        tree:add_proto_expert_info(e_width)
        tree:add(f.bytes, value_tvbr)
        return nil
    end
    if kind == "u8" or kind == "u16" or kind == "u32" then
        tree:add(f[kind], value_tvbr)
        return string.format("0x%x", value_tvbr:uint())
    elseif kind == "msgtype" then
        tree:add(f.msgtype, value_tvbr)
        return message_types[value_tvbr:uint()] or string.format("0x%02x", value_tvbr:uint())
    elseif kind == "version" then
        tree:add(f.version, value_tvbr)
        local v = value_tvbr:uint()
        return string.format("%d.%d", bit.rshift(v, 4), bit.band(v, 0x0F))
    elseif kind == "text" then
        tree:add(f.text, value_tvbr)
        return '"' .. value_tvbr:string() .. '"'
    elseif kind == "public_key" then
        tree:add(f.pk_x, value_tvbr:range(0, 32))
        tree:add(f.pk_y, value_tvbr:range(32, 32))
        tree:add(f.tpk_x, value_tvbr:range(64, 32))
        tree:add(f.tpk_y, value_tvbr:range(96, 32))
        return nil
    elseif kind == "encrypted" and len >= 16 then
        tree:add(f.iv, value_tvbr:range(0, 16))
        if len > 16 then tree:add(f.ciphertext, value_tvbr:range(16)) end
        return string.format("IV + %d bytes", len - 16)
    elseif kind == "nested" and len > 0 then
        dissect_attributes(value_tvbr:tvb(), tree)
        return nil
    end
    if len > 0 then tree:add(f.bytes, value_tvbr) end
    return nil
end

-- Walks a sequence of attributes; returns the message type when one is found.
dissect_attributes = function(tvb, tree)
    local offset = 0
    local total = tvb:len()
    local message_type
    while offset < total do
        if total - offset < 4 then
            local t = tree:add(f.attr, tvb:range(offset))
            t:add_proto_expert_info(e_short)
            break
        end
        local type = tvb:range(offset, 2):uint()
        local len = tvb:range(offset + 2, 2):uint()
        local info = attributes[type]
        local name = info and info[1] or string.format("Unknown attribute 0x%04x", type)
        if offset + 4 + len > total then
            local t = tree:add(f.attr, tvb:range(offset)):set_text(name)
            t:add(f.attr_type, tvb:range(offset, 2))
            t:add(f.attr_len, tvb:range(offset + 2, 2))
            t:add_proto_expert_info(e_short)
            break
        end
        local t = tree:add(f.attr, tvb:range(offset, 4 + len))
        t:add(f.attr_type, tvb:range(offset, 2))
        t:add(f.attr_len, tvb:range(offset + 2, 2))
        local summary
        if not info then
            t:add_proto_expert_info(e_unknown)
            if len > 0 then t:add(f.bytes, tvb:range(offset + 4, len)) end
        elseif len > 0 then
            summary = dissect_value(tvb, t, info[2], tvb:range(offset + 4, len), len)
        end
        if type == 0x1022 and len == 1 then
            message_type = message_types[tvb:range(offset + 4, 1):uint()]
        end
        t:set_text(name .. (summary and (": " .. summary) or "") ..
                   string.format(" (0x%04x, %d bytes)", type, len))
        offset = offset + 4 + len
    end
    return message_type
end

-- Fragments of one message, per direction, joined on the first pass over the capture.
local pending = {}    -- direction -> ByteArray collected so far
local reassembled = {} -- frame number -> ByteArray of the whole message (last fragment only)
local fragment_of = {} -- frame number -> true for a fragment that is not the last

local function eap_dissector()
    return DissectorTable.get("eapol.type"):get_dissector(0)
end
local wireshark_eap = eap_dissector()

function p.dissector(tvb, pinfo, tree)
    local len = tvb:len()
    if len < 5 or tvb:range(4, 1):uint() ~= EAP_TYPE_WAPI or
       (tvb:range(0, 1):uint() ~= 1 and tvb:range(0, 1):uint() ~= 2) then
        return wireshark_eap:call(tvb, pinfo, tree)
    end
    pinfo.cols.protocol = "WAPI-SC"
    -- The fragments of M8 carry the EAP length little-endian, 5 less than the real length: the
    -- receiving side reads it unconverted and copies that value less 9 bytes of payload, so
    -- peers of this protocol send it that way. Their payload runs to the end of the EAPOL body.
    local eap_len = tvb:range(2, 2):uint()
    local swapped = eap_len > len and tvb:range(2, 2):le_uint() <= len
    if swapped then eap_len = len end
    eap_len = math.min(eap_len, len)
    local root = tree:add(p, tvb:range(0, eap_len))
    root:add(f.eap_code, tvb:range(0, 1))
    root:add(f.eap_id, tvb:range(1, 1))
    if swapped then
        root:add_le(f.eap_len, tvb:range(2, 2)):append_text(" (little-endian, as M8 fragments carry it)")
    else
        root:add(f.eap_len, tvb:range(2, 2))
    end
    root:add(f.eap_type, tvb:range(4, 1)):append_text(" (WAPI Simple Config)")
    if eap_len < 14 then
        root:add_proto_expert_info(e_short)
        return len
    end
    root:add(f.vendor_id, tvb:range(5, 3))
    root:add(f.vendor_type, tvb:range(8, 4))
    local opcode = tvb:range(12, 1):uint()
    root:add(f.opcode, tvb:range(12, 1))
    local flags = tvb:range(13, 1):uint()
    local ft = root:add(f.flags, tvb:range(13, 1))
    ft:add(f.flag_mf, tvb:range(13, 1))
    ft:add(f.flag_lf, tvb:range(13, 1))
    local offset = 14
    if bit.band(flags, FLAG_LF) ~= 0 and eap_len >= 16 then
        root:add(f.msg_len, tvb:range(14, 2))
        offset = 16
    end
    local code = eap_codes[tvb:range(0, 1):uint()]
    local info = string.format("%s, %s", code, opcodes[opcode] or ("op-code " .. opcode))
    if offset >= eap_len then
        pinfo.cols.info = info
        return len
    end
    local body = tvb:range(offset, eap_len - offset)

    -- Fragments: collected per direction; the last one shows the whole message.
    local direction = tostring(pinfo.src) .. ">" .. tostring(pinfo.dst)
    if not pinfo.visited then
        if bit.band(flags, FLAG_MF) ~= 0 then
            local collected = pending[direction] or ByteArray.new()
            collected:append(body:bytes())
            pending[direction] = collected
            fragment_of[pinfo.number] = true
        elseif pending[direction] then
            local collected = pending[direction]
            collected:append(body:bytes())
            reassembled[pinfo.number] = collected
            pending[direction] = nil
        end
    end
    local message_tvb = body:tvb()
    if fragment_of[pinfo.number] then
        root:add(f.fragment, body)
        pinfo.cols.info = info .. ", fragment (more follow)"
        return len
    elseif reassembled[pinfo.number] then
        root:add(f.fragment, body)
        -- The enrollee parses the collected bytes less their last 18, which registrars fill
        -- with a dummy message head; those 18 are shown apart.
        local whole = reassembled[pinfo.number]:tvb("Reassembled message")
        root:add(f.reassembled, body, whole:len()):set_generated()
        if whole:len() > FRAGMENT_TRAILER_LEN then
            local message_len = whole:len() - FRAGMENT_TRAILER_LEN
            root:add(f.trailer, whole:range(message_len))
            message_tvb = whole:range(0, message_len):tvb()
        else
            message_tvb = whole
        end
    end
    local message_type = dissect_attributes(message_tvb, root)
    pinfo.cols.info = info .. (message_type and (", " .. message_type) or "")
    return len
end

DissectorTable.get("eapol.type"):add(0, p)
