#!/usr/bin/env bash
# Builds zyrlog and runs the demo program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build zyr_demo
./build/examples/zyr_demo
