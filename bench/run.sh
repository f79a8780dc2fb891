#!/usr/bin/env bash
# Builds the benchmarks in an optimised build (no sanitizers) and runs each one.
#   BUILD_DIR  build directory (default: build-bench)
#   any arguments are passed to every benchmark program
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build-bench}
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DVELTRANE_BUILD_BENCH=ON -DVELTRANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc 2>/dev/null || echo 2)"
for src in bench/*.cpp; do
  name=$(basename "$src" .cpp)
  echo "== $name"
  "$build_dir/bench/$name" "$@"
done
