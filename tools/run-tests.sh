#!/usr/bin/env bash
# Builds veltrane and its tests with AddressSanitizer, UndefinedBehaviorSanitizer and
# warnings as errors, then runs the whole test suite with CTest.
#   BUILD_DIR   build directory (default: build-test)
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build-test}
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELTRANE_SANITIZE=ON -DVELTRANE_WERROR=ON >/dev/null
cmake --build "$build_dir" -j "$jobs"
ctest --test-dir "$build_dir" --output-on-failure -j "$jobs"
