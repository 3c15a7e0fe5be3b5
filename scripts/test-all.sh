#!/usr/bin/env bash
# The whole test run: every configuration in turn (g++ Debug, g++ Release with the installed tree
# and packages, clang with ASan+UBSan, clang with TSan for the secure-chip client, mingw-w64 x64
# and x86 under Wine), then one summary line per configuration and the totals. Fails if anything
# failed.
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
configs=(${CONFIGS:-linux release asan tsan windows windows32})
start=$(date +%s)
for c in "${configs[@]}"; do
    "$root/scripts/test-config.sh" "$c"
done

echo
echo "==== summary ($(($(date +%s) - start)) s)"
total_passed=0
total_failed=0
for c in "${configs[@]}"; do
    read -r passed failed <"$root/build/$c.result" || { passed=0; failed=1; }
    printf '%-10s %d passed, %d failed\n' "$c:" "$passed" "$failed"
    total_passed=$((total_passed + passed))
    total_failed=$((total_failed + failed))
done
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
