// Test-side attribute encoder and walker, written apart from the library's codec so that a
// mistake shared by both cannot hide.
#pragma once

#include <cstdint>
#include <vector>

#include "common/test_bytes.h"

namespace testwire {

using Bytes = std::vector<uint8_t>;

struct Attr {
    uint16_t type;
    Bytes value;
};

// Appends one attribute: 16-bit type and length, big-endian, then the value.
inline void append_tlv(Bytes& out, uint16_t type, const Bytes& value) {
    const uint8_t head[4] = {uint8_t(type >> 8), uint8_t(type), uint8_t(value.size() >> 8),
                             uint8_t(value.size())};
    testbytes::append(out, head);
    testbytes::append(out, value);
}
inline Bytes tlv(uint16_t type, const Bytes& value) {
    Bytes out;
    append_tlv(out, type, value);
    return out;
}
inline Bytes encode(const std::vector<Attr>& attrs) {
    Bytes out;
    for (const Attr& a : attrs) append_tlv(out, a.type, a.value);
    return out;
}

// Walks a flat attribute sequence; false on any overrun.
inline bool parse(const uint8_t* p, size_t n, std::vector<Attr>& out) {
    for (size_t off = 0; off < n;) {
        if (n - off < 4) return false;
        const uint16_t type = static_cast<uint16_t>(p[off] << 8 | p[off + 1]);
        const size_t len = static_cast<size_t>(p[off + 2] << 8 | p[off + 3]);
        if (n - off - 4 < len) return false;
        out.push_back({type, Bytes(p + off + 4, p + off + 4 + len)});
        off += 4 + len;
    }
    return true;
}

}  // namespace testwire
