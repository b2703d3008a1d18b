#!/usr/bin/env bash
# Replays every fuzz target's committed corpus under AddressSanitizer and UBSan: a crash, a leak or a
# failed check in any input fails the run. Builds the targets first (tools/fuzz-build.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${ORVIN_FUZZ_BUILD_DIR:-build-fuzz}
tools/fuzz-build.sh "$build"

echo "== fuzz corpus replay ($build)"
failed=()
for dir in tests/fuzz/corpus/*/; do
    target=$(basename "$dir")
    # Standard output is closed: the parsers print the program's own messages for bad input.
    if "$build/tests/fuzz/fuzz_$target" -runs=0 -close_fd_mask=1 "$dir" \
            >"$build/replay-$target.log" 2>&1; then
        echo "$target: $(find "$dir" -type f | wc -l) inputs ok"
    else
        echo "$target: FAILED (see $build/replay-$target.log)"
        tail -n 30 "$build/replay-$target.log"
        failed+=("$target")
    fi
done
((${#failed[@]} == 0))
