#!/usr/bin/env bash
# 32-bit Wine, for the x86 DLL's test programs (Debian: the i386 architecture and wine32:i386).
#   scripts/wine32.sh check     exit 0 when 32-bit programs can run under Wine
#   scripts/wine32.sh install   try to install it (root); on failure say why and exit 1
set -uo pipefail

have_wine32() {
    dpkg -s wine32:i386 2>/dev/null | grep -q '^Status: install ok installed'
}

case "${1:-check}" in
    check)
        have_wine32 ;;
    install)
        have_wine32 && exit 0
        if [ "$(id -u)" -ne 0 ]; then
            echo "wine32: not installed, and installing it needs root" >&2
            exit 1
        fi
        export DEBIAN_FRONTEND=noninteractive
        log=$(mktemp)
        added=false
        # On failure the machine is left as it was: without the i386 architecture, whose
        # missing package lists would otherwise fail every later apt-get update.
        give_up() {
            echo "wine32: $1:" >&2
            tail -3 "$log" >&2
            if $added; then
                dpkg --remove-architecture i386 && apt-get update -q >/dev/null 2>&1
            fi
            rm -f "$log"
            exit 1
        }
        if ! dpkg --print-foreign-architectures | grep -qx i386; then
            dpkg --add-architecture i386 || give_up "cannot add the i386 architecture"
            added=true
        fi
        apt-get update -q >"$log" 2>&1 || give_up "apt-get update failed"
        apt-get install -y -q --no-install-recommends wine32:i386 >"$log" 2>&1 ||
            give_up "apt-get install wine32:i386 failed"
        rm -f "$log"
        have_wine32 ;;
    *)
        echo "usage: $0 check|install" >&2
        exit 2 ;;
esac
