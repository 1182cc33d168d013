#!/usr/bin/env bash
# Runs one fuzz target of tests/fuzz (libFuzzer, clang ASan+UBSan build) over
# its seed corpus:
#   bash tools/fuzz.sh api|reader [seconds, default 600] [libFuzzer options...]
# The target is built in build/sanitize (or $PVX_FUZZ_BUILD) first. Inputs the
# run finds go to build/fuzz-corpus/<target>, crashing inputs to
# build/fuzz-findings/; a finding ends the run with a non-zero status.
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:?usage: tools/fuzz.sh api|reader [seconds] [libFuzzer options]}
seconds=${2:-600}
shift $(( $# < 2 ? $# : 2 ))
build=${PVX_FUZZ_BUILD:-build/sanitize}
if [ ! -f "$build/build.ninja" ]; then
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPVX_SANITIZE=address \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ > /dev/null
fi
cmake --build "$build" --target "${target}_fuzz" > /dev/null
corpus="build/fuzz-corpus/$target"
mkdir -p "$corpus" build/fuzz-findings
"$build/tests/fuzz/${target}_fuzz" -max_total_time="$seconds" -timeout=60 -print_final_stats=1 \
    -artifact_prefix=build/fuzz-findings/ "$@" "$corpus" "tests/fuzz/corpus/$target" 2> "build/fuzz-$target.log" \
    || { tail -n 60 "build/fuzz-$target.log"; exit 1; }
grep -E '^stat::(number_of_executed_units|new_units_added)|cov: ' "build/fuzz-$target.log" | tail -n 3 || true
