#!/usr/bin/env bash
# Configures, builds and tests one configuration, then writes "<passed> <failed>" to
# build/<name>.result. A configuration that does not configure counts as one failed test; a
# build error still runs CTest, so tests whose programs are missing count as failed.
#   scripts/test-config.sh linux|release|asan|tsan|windows|windows32
# tsan builds and runs only the secure-chip client's tests: the one place with a thread of its own.
# release is the optimised g++ build hosts get: the whole suite, then the installed tree (hosts
# built against it with pkg-config, find_package and add_subdirectory), the Debian packages (in
# CI, as root, also installed with dpkg and removed again).
# windows32 is the 32-bit DLL: its export table, machine type and imports, the import libraries
# and the .zip; its test programs run only where 32-bit Wine is installed.
set -uo pipefail

name=$1
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/$name"
result="$root/build/$name.result"
jobs=${JOBS:-2}
jobs_test=$jobs
retry=()
targets=()    # empty: everything
selection=()  # empty: every test
build_type=${BUILD_TYPE:-Debug}
mkdir -p "$root/build"
echo "0 1" >"$result"  # until proven otherwise: one failure

case "$name" in
    linux) config=(-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++) ;;
    release) build_type=Release
             # Warnings are errors here too, so an optimiser-only warning cannot come back.
             config=(-DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DWAPIWPS_WERROR=ON
                     -DWAPIWPS_TEST_INSTALL=ON)
             if [ "${CI:-}" = true ] && [ "$(id -u)" -eq 0 ]; then
                 config+=(-DWAPIWPS_TEST_DEB_INSTALL=ON)
             fi ;;
    asan) config=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DWAPIWPS_SANITIZE=ON) ;;
    tsan) config=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DWAPIWPS_TSAN=ON)
          targets=(securechip_tests)
          selection=(-R '^securechip_tests$') ;;
    # Under Wine one program at a time: Wine 8 has been seen to lose a process that starts while
    # another starts or ends under the same prefix (it dies at once, with no output), so a test
    # that fails that way is run once more. A real failure fails both times.
    windows) config=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64.cmake")
             jobs_test=1
             retry=(--repeat until-pass:2) ;;
    windows32) config=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-i686.cmake")
               if ! "$root/scripts/wine32.sh" check; then
                   # Without 32-bit Wine only what needs no running program: the DLL's tables.
                   targets=(wapiwps exports_c_host wapiwps_cli chipsim)
                   selection=(-R '^(exports_list|packages_zip)$')
                   echo "==== [$name] SKIPPED: x86 test programs (32-bit Wine is not installed;" \
                        "scripts/wine32.sh install adds it); checking the DLL's tables and the .zip"
               fi ;;
    *) echo "unknown configuration $name" >&2; exit 2 ;;
esac

echo "==== [$name] configure"
if ! cmake -G Ninja -S "$root" -B "$build" -DCMAKE_BUILD_TYPE="$build_type" "${config[@]}" \
        >"$build.configure.log" 2>&1; then
    cat "$build.configure.log"
    echo "==== [$name] configure FAILED"
    exit 1
fi

echo "==== [$name] build"
if ! ninja -C "$build" -j"$jobs" -k 0 "${targets[@]}" >"$build.build.log" 2>&1; then
    grep -E -B2 -A12 'FAILED:|error:' "$build.build.log" | head -150
    echo "==== [$name] build FAILED (see $build.build.log); testing what was built"
fi

echo "==== [$name] test"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
(cd "$build" && ctest -j"$jobs_test" --output-on-failure --timeout 600 "${retry[@]}" "${selection[@]}") 2>&1 |
    tee "$build.ctest.log"

# "100% tests passed, 0 tests failed out of 42"
summary=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$build.ctest.log" | tail -1)
if [ -z "$summary" ]; then
    echo "0 1" >"$result"
    exit 1
fi
failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$summary")
total=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\2/' <<<"$summary")
echo "$((total - failed)) $failed" >"$result"
[ "$failed" -eq 0 ]
