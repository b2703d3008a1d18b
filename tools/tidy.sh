#!/usr/bin/env bash
# Runs clang-tidy with the checks in .clang-tidy over every source file of src/ and fails on any
# finding. The compile commands come from a build directory of its own (argument, default
# build-tidy), configured here; nothing needs to be built.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-tidy}
tidy=$(command -v clang-tidy-14 || command -v clang-tidy) || {
    echo "clang-tidy is missing: tools/deps.sh installs it" >&2
    exit 2
}
cmake -S . -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DORVIN_TESTS=OFF >/dev/null
# --quiet drops the count of suppressed warnings from system headers; a finding is an error by
# WarningsAsErrors, so xargs fails when any file has one.
find src -name '*.cpp' -print0 | sort -z |
    xargs -0 -n 4 -P "$(nproc)" "$tidy" -p "$build" --quiet 2> >(grep -v 'warnings generated' >&2)
