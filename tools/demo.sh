#!/usr/bin/env bash
# Builds orvin-auth and runs a short session in a simulated terminal. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" >/dev/null
exec /usr/bin/python3 tools/demo.py "$PWD/build"
