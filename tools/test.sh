#!/usr/bin/env bash
# Builds orvin-auth and runs every test: unit tests and system tests in the simulated terminal,
# once with the production build and once under AddressSanitizer and UBSan. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh

jobs=$(nproc)
run_suites() {
    local dir=$1
    echo "== unit tests ($dir)"
    "$dir/orvin-unit-tests" --gtest_brief=1
    echo "== system tests ($dir)"
    ORVIN_BUILD_DIR="$PWD/$dir" /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/system
}

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
run_suites build

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DORVIN_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
export ASAN_OPTIONS=abort_on_error=0:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_suites build-asan
tools/fuzz-replay.sh
