#!/usr/bin/env bash
# Builds zyrlog and runs the demo program. Needs only a C++ compiler, CMake
# and Ninja (installed here if missing, as root); tools/test.sh installs what
# the tests need besides.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh build
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZYR_BUILD_TESTS=OFF >/dev/null
ninja -C build zyr_demo
./build/examples/zyr_demo
