#!/usr/bin/env bash
# Builds the benchmarks in an optimised build (no sanitizers) and runs each one.
#   BUILD_DIR  build directory (default: build-bench)
#   any arguments are passed to every benchmark program
#   VELTRANE_BENCH_LONG=1  also runs long_capture_bench (an hour-long stereo capture
#                          through `veltrane analyze`: writes 2 GiB to /tmp, needs about
#                          7 GiB of memory and several minutes). Skipped otherwise; it can
#                          also be run by hand: build-bench/bench/long_capture_bench --minutes 20
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build-bench}
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DVELTRANE_BUILD_BENCH=ON -DVELTRANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc 2>/dev/null || echo 2)"
for src in bench/*.cpp; do
  name=$(basename "$src" .cpp)
  if [[ $name == long_capture_bench && ${VELTRANE_BENCH_LONG:-0} != 1 ]]; then
    echo "== $name (skipped: set VELTRANE_BENCH_LONG=1 to run it)"
    continue
  fi
  echo "== $name"
  "$build_dir/bench/$name" "$@"
done
