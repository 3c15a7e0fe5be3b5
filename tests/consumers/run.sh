#!/bin/sh
# Builds and runs one host program against wapiwps the way a host developer would:
#   run.sh pkgconfig PREFIX WORK          C, `pkg-config --cflags --libs wapiwps` from PREFIX
#   run.sh find_package PREFIX WORK       C++, find_package(wapiwps) with CMAKE_PREFIX_PATH=PREFIX
#   run.sh subdirectory SOURCE WORK       C++, add_subdirectory(SOURCE)
#   run.sh deb PACKAGES_DIR WORK          installs the .debs with dpkg, builds the C host with the
#                                         system's pkg-config, runs `wapiwps demo`, removes them
set -eu
kind=$1 where=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"
mkdir -p "$work"

build_c_host() {
    # shellcheck disable=SC2046
    ${CC:-cc} -std=c99 -Wall -Werror "$here/c_pkgconfig/main.c" -o "$work/consumer" \
        $(pkg-config --cflags --libs wapiwps) "$@"
}

case "$kind" in
    pkgconfig)
        export PKG_CONFIG_PATH="$where/lib/pkgconfig"
        # A private prefix is not in the loader's path: the host records it, as such hosts do.
        build_c_host -Wl,-rpath,"$(pkg-config --variable=libdir wapiwps)"
        ;;
    find_package)
        cmake -S "$here/cxx_find_package" -B "$work" -DCMAKE_PREFIX_PATH="$where" \
            >"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
        cmake --build "$work" >>"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
        ;;
    subdirectory)
        cmake -S "$here/cxx_subdirectory" -B "$work" -DWAPIWPS_SOURCE_DIR="$where" \
            >"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
        cmake --build "$work" -j2 >>"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
        ;;
    deb)
        set -- "$where"/libwapiwps1_*.deb "$where"/libwapiwps-dev_*.deb "$where"/wapiwps-tools_*.deb
        trap 'dpkg --purge wapiwps-tools libwapiwps-dev libwapiwps1 >/dev/null' EXIT
        dpkg -i "$@"
        build_c_host
        wapiwps demo --mode psk >"$work/demo.log" || { cat "$work/demo.log"; exit 1; }
        tail -1 "$work/demo.log"
        ;;
    *)
        echo "unknown kind $kind" >&2
        exit 2
        ;;
esac
"$work/consumer"
