#!/usr/bin/env bash
# Installs the Debian 12 packages the build and the tests need, only those that are missing.
# Runs apt-get as root (directly, or through sudo when available).
#   scripts/install-deps.sh        everything `make test` needs
#   scripts/install-deps.sh demo   only what `make demo` needs (no Windows toolchain, no Wine)
set -euo pipefail

demo_packages=(cmake ninja-build make g++ libgcrypt20-dev libpcap-dev)
all_packages=(
    cmake ninja-build make g++ clang libclang-rt-14-dev   # compilers; ASan, UBSan, libFuzzer
    libgtest-dev googletest libbenchmark-dev               # GoogleTest (also its sources), benchmarks
    nlohmann-json3-dev                                     # the tests read their vector files with it
    valgrind                                               # constant-time test of signing, make soak
    libgcrypt20-dev libssl-dev libpcap-dev                 # ZEV stand-in, registrar, tools
    g++-mingw-w64-x86-64 libgcrypt-mingw-w64-dev libgpg-error-mingw-w64-dev  # Windows build
    wine64 wine                                            # Windows test programs
    tshark iproute2                                        # capture dissection, demo networking
)
if [ "${1:-}" = demo ]; then
    packages=("${demo_packages[@]}")
else
    packages=("${all_packages[@]}")
fi

missing=()
for pkg in "${packages[@]}"; do
    if ! dpkg -s "$pkg" 2>/dev/null | grep -q '^Status: install ok installed'; then
        missing+=("$pkg")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: all ${#packages[@]} packages present"
    exit 0
fi

echo "install-deps: installing ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
else
    echo "install-deps: missing packages and no root: ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
# tshark asks whether non-root users may capture; answer no without a prompt.
echo "wireshark-common wireshark-common/install-setuid boolean false" |
    "${as_root[@]}" debconf-set-selections 2>/dev/null || true
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
