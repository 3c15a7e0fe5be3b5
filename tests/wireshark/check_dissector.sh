#!/bin/sh
# Runs `wapiwps demo --pcap` in each WAPI mode and reads the capture with tshark and the Lua
# dissector: every frame of EAP type 242 must be taken by it (no "Unknown type (0xf2)"), the
# exchange must read M1 ... M8, Done in the Info column, every attribute must be named, and
# there must be no malformed packet, Lua error or expert warning.
#   check_dissector.sh WAPIWPS_PROGRAM DISSECTOR_LUA WORK_DIR
set -eu
cli=$1 lua=$2 work=$3
mkdir -p "$work"
failures=0

check() {
    name=$1
    shift
    pcap="$work/$name.pcap"
    "$cli" demo "$@" --pcap "$pcap" >"$work/$name.demo.log" || {
        echo "$name: demo failed"; cat "$work/$name.demo.log"; failures=$((failures + 1)); return; }
    tshark -n -X lua_script:"$lua" -r "$pcap" 2>/dev/null >"$work/$name.summary"
    tshark -n -X lua_script:"$lua" -r "$pcap" -V 2>/dev/null >"$work/$name.detail"
    frames=$(wc -l <"$work/$name.summary")
    ours=$(grep -c ' WAPI-SC ' "$work/$name.summary" || true)
    # EAPOL-Start, Request and Response Identity and the closing Failure are plain EAP.
    if [ "$frames" -lt 12 ] || [ "$ours" -ne $((frames - 4)) ]; then
        echo "$name: $ours of $frames frames decoded as WAPI-SC"; failures=$((failures + 1))
    fi
    sequence=$(grep -o -E '(M[1-8]|WSC_DONE)$' "$work/$name.summary" | tr '\n' ' ')
    if [ "$sequence" != "M1 M2 M3 M4 M5 M6 M7 M8 WSC_DONE " ]; then
        echo "$name: message sequence '$sequence'"; failures=$((failures + 1))
    fi
    if grep -n -E 'Unknown type|Unknown attribute|Malformed|Lua Error|Expert Info \((Error|Warning)' \
            "$work/$name.detail"; then
        echo "$name: the lines above should not be there"; failures=$((failures + 1))
    fi
    attributes=$(grep -c -E '^    [A-Z].* \(0x1[0-9a-f]{3}, [0-9]+ bytes\)$' "$work/$name.detail" || true)
    echo "$name: $frames frames, $ours WAPI-SC, $attributes attributes named: $sequence"
}

check psk --mode psk
check cert --mode cert
check cert-fragmented --mode cert --fragment-m8
check psk-fragmented --mode psk --fragment-m8
[ "$failures" -eq 0 ]
