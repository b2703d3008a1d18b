#!/usr/bin/env bash
# Fuzzes every target (or those named after SECONDS) for SECONDS each, default 60, and merges the
# inputs that reach new code into its committed corpus, which stays minimal. Crashing inputs are
# kept in build-fuzz/artifacts/ and the run fails; a fixed one belongs in the corpus as a seed.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
build=${ORVIN_FUZZ_BUILD_DIR:-build-fuzz}
tools/fuzz-build.sh "$build"
mkdir -p "$build/artifacts"

targets=("$@")
if ((${#targets[@]} == 0)); then
    for dir in tests/fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

status=0
for target in "${targets[@]}"; do
    binary=$build/tests/fuzz/fuzz_$target
    corpus=tests/fuzz/corpus/$target
    found=$(mktemp -d)
    log=$build/fuzz-$target.log
    echo "== $target: ${seconds}s"
    # New inputs go to the scratch directory first; only those adding coverage join the corpus.
    if ! "$binary" -max_total_time="$seconds" -close_fd_mask=1 -print_final_stats=1 \
            -artifact_prefix="$build/artifacts/$target-" "$found" "$corpus" >"$log" 2>&1; then
        echo "$target: CRASH, see $log"
        grep -E 'ERROR|check failed|SUMMARY|Test unit written' "$log" || true
        status=1
    fi
    grep -E '^stat::number_of_executed_units|^#[0-9]+ +DONE' "$log" || true
    before=$(find "$corpus" -type f | wc -l)
    # The named seeds always stay; inputs named by their hash stay only while they reach an edge
    # nothing else reaches (hit counts ignored, so the committed corpus stays a handful).
    kept=$(mktemp -d)
    find "$corpus" -type f -regextype posix-extended ! -regex '.*/[0-9a-f]{40}' -exec cp {} "$kept" \;
    "$binary" -merge=1 -use_counters=0 -close_fd_mask=1 "$kept" "$corpus" "$found" >>"$log" 2>&1
    rm -rf "$corpus" "$found"
    mv "$kept" "$corpus"
    chmod 755 "$corpus"
    echo "$target: corpus $before -> $(find "$corpus" -type f | wc -l) inputs"
done
exit $status
