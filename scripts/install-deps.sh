#!/usr/bin/env bash
# Installs the Debian 12 packages the build and the tests need, only those that are missing.
# Runs apt-get as root (directly, or through sudo when available).
#   scripts/install-deps.sh        everything `make test` needs
#   scripts/install-deps.sh demo   only what `make demo` needs (no Windows toolchain, no Wine)
# 32-bit Wine (for the x86 DLL's test programs) is tried once, by scripts/wine32.sh install, after
# the rest; when it cannot be installed the x86 configuration says so and checks less.
set -euo pipefail

demo_packages=(cmake ninja-build make g++ libgcrypt20-dev libpcap-dev)
all_packages=(
    cmake ninja-build make g++ clang libclang-rt-14-dev   # compilers; ASan, UBSan, libFuzzer
    libgtest-dev googletest libbenchmark-dev               # GoogleTest (also its sources), benchmarks
    nlohmann-json3-dev                                     # the tests read their vector files with it
    valgrind                                               # constant-time test of signing, make soak
    libgcrypt20-dev libssl-dev libpcap-dev                 # ZEV stand-in, registrar, tools
    g++-mingw-w64-x86-64 g++-mingw-w64-i686                # Windows builds, x64 and x86
    libgcrypt-mingw-w64-dev libgpg-error-mingw-w64-dev
    llvm-14 clang-14 lld-14                                # MSVC import library, clang-cl host
    wine64 wine                                            # Windows test programs
    dpkg-dev file                                          # Debian packages (CPack, shlibdeps)
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

try_wine32() {
    [ "${1:-}" = demo ] && return 0
    "$(dirname "$0")/wine32.sh" check && return 0
    if "$(dirname "$0")/wine32.sh" install; then
        echo "install-deps: 32-bit Wine installed"
    else
        echo "install-deps: 32-bit Wine not installable here; x86 test programs will not run"
    fi
}

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: all ${#packages[@]} packages present"
    try_wine32 "${1:-}"
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
try_wine32 "${1:-}"
