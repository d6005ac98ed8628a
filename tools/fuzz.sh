#!/bin/sh
# Runs fuzz targets under the address and undefined-behaviour sanitizers, each for a while:
#   sh tools/fuzz.sh [SECONDS [TARGET...]]
# 60 seconds each and all targets by default. What they learn stays in build-fuzz/work; what they
# find is left there too and ends the run. Needs clang.
set -eu
cd "$(dirname "$0")/.."
. tools/setup.sh
seconds=${1:-60}
[ $# -eq 0 ] || shift
CXX=${CXX:-clang++} cmake -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZOT_FUZZ=ON >/dev/null
cmake --build build-fuzz -j "$(cpu_count)"
if [ $# -eq 0 ]; then
    for source in fuzz/*_fuzz.cpp; do
        set -- "$@" "$(basename "$source" _fuzz.cpp)"
    done
fi
for target in "$@"; do
    work=build-fuzz/found/$target
    mkdir -p "$work"
    log=$work.log
    # A target changes its working directory, so every path is absolute.
    if nice "build-fuzz/${target}_fuzz" -max_total_time="$seconds" -timeout=10 \
        -print_final_stats=1 -artifact_prefix="$PWD/$work-" "$PWD/$work" \
        "$PWD/fuzz/corpus/$target" >"$log" 2>&1; then
        echo "$target: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") executions, ok"
    else
        tail -n 30 "$log"
        echo "$target: failed, see $log"
        exit 1
    fi
done
