#!/usr/bin/env bash
# Builds the fuzz targets with clang into the directory given (default build-fuzz), configuring it
# on first use; shared by the fuzzing and the corpus replay.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-fuzz}
if [[ ! -f $build/CMakeCache.txt ]]; then
    CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DORVIN_FUZZ=ON -DORVIN_TESTS=OFF >/dev/null
fi
cmake --build "$build" -j"$(nproc)" --target orvin-fuzz >/dev/null
