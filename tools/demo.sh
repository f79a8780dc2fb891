#!/usr/bin/env bash
# Builds veltrane, generates a deterministic example reference and an impaired capture,
# and runs `veltrane analyze` on them. The report lands in example/report.html.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build-demo}
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DVELTRANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" -j "$(nproc 2>/dev/null || echo 2)" --target veltrane make_example_signals >/dev/null
mkdir -p example
"$build_dir/tools/make_example_signals" example
status=0
"$build_dir/veltrane" analyze --ref example/reference.wav --dut example/capture.wav --out example/report.html --json || status=$?
echo
echo "report: $(pwd)/example/report.html (results: example/report.json)"
exit "$status"
