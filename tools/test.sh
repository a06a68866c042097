#!/usr/bin/env bash
# Builds zyrlog and runs all tests. ZYR_SANITIZE=address (ASan + UBSan) or
# ZYR_SANITIZE=thread selects a sanitizer build in its own build folder.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
san="${ZYR_SANITIZE:-}"
dir="build${san:+-$san}"
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZYR_SANITIZE="$san" -DZYR_BUILD_TESTS=ON >/dev/null
ninja -C "$dir"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/tsan.supp}"
ctest --test-dir "$dir" --output-on-failure -j2 ${ZYR_CTEST_ARGS:-}
