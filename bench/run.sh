#!/usr/bin/env bash
# One run, side by side: the log benchmark under Wine (lines per second, the
# rotation of a 15 MiB log), then gzip -9 of the same 15 MiB sample on the
# Linux side of the same machine, and the ratio of the two times.
#   BUILD_DIR   build tree to use (default out/build; configured when missing)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${BUILD_DIR:-$root/out/build}"
[ -d "$build" ] || make -C "$root" configure
cmake --build "$build" --target bench_log_bench -j2 >/dev/null
bash "$root/tools/wine-up.sh"

work="$(mktemp -d /tmp/orasnap-log-bench.XXXXXX)"
trap 'rm -rf "$work"' EXIT
if ! output="$(cd "$root/out/bin" && "$root/tools/wine-run.sh" ./bench_log_bench.exe "Z:${work//\//\\}")"; then
    echo "$output" >&2
    exit 1
fi
echo "$output" | grep -v -e '^rotation_seconds=' -e '^sample='
rotation="$(echo "$output" | sed -n 's/^rotation_seconds=//p')"

best=""
for _ in 1 2 3; do
    start=$(date +%s%N)
    gzip -9 -c "$work/sample.log" >/dev/null
    end=$(date +%s%N)
    elapsed=$((end - start))
    if [ -z "$best" ] || [ "$elapsed" -lt "$best" ]; then best=$elapsed; fi
done
awk -v ns="$best" -v rot="$rotation" 'BEGIN {
    gz = ns / 1e9
    printf "gzip -9 of the same 15 MiB     : %.3f s (Linux, best of 3)\n", gz
    printf "rotation / gzip -9             : %.2f\n", rot / gz
}'
