#!/usr/bin/env bash
# Builds the settings-reader fuzzer with clang (libFuzzer + AddressSanitizer +
# UndefinedBehaviorSanitizer) and runs it on one job.
#   FUZZ_SECONDS  run time (default 180)
#   BUILD_DIR     where the binary, corpus and crash files go (default build-fuzz)
# Needs clang++ and its libFuzzer runtime (Debian: apt-get install -y clang libclang-rt-14-dev).
set -euo pipefail
cd "$(dirname "$0")/../.."
build_dir=${BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-180}
cxx=${CXX_FUZZ:-clang++}
mkdir -p "$build_dir/corpus" "$build_dir/artifacts"

"$cxx" -std=c++20 -O1 -g -fno-omit-frame-pointer -fsanitize=fuzzer,address,undefined \
  -fno-sanitize-recover=undefined -Isrc \
  src/config/*.cpp src/util/files.cpp tools/fuzz/config_json_fuzz.cpp \
  -o "$build_dir/config_json_fuzz"

# A few seeds in the shapes the real files take.
cat > "$build_dir/corpus/seed_config.json" <<'JSON'
// tolerances
{
  "general": {"default_profile": "amplitude_sweep", "low_level_signal_threshold_db": -65},
  "spectral_fidelity": {"fft_size": 16384, "snapshots": [{"time_sec": 1.5}, {"time_sec": 3}],
    "bands": [{"upper_freq_hz": 24000, "noise_floor_db": -90, "low_level_signal_threshold_db": -60,
               "peak_threshold_db": -40, "signal_tolerance_db": 3, "low_level_signal_tolerance_db": 6,
               "peak_tolerance_db": 0.5}], "profile": "amp_sweep", "relative_noise_floor_db": -50},
  "level_fidelity": {"profile": "impulse", "gates_overall": false},
  "distortion": {"continuous": true, "overlap_fraction": 0.25},
}
JSON
cat > "$build_dir/corpus/seed_defaults.cfg" <<'JSON'
{
  "general": {"test_engineer": "J\u00e9", "test_product": "Amp-7", "tester_info_enabled": true},
  "alignment": {"fine_align_max_search_sec": 0.2, "sync_psr_threshold": 6.5},
  "analysis": {"general": {"default_profile": "time_domain"}, "artifact": {"window_samples": 96},
               "spectral_fidelity": {"snapshots": true, "sweep_edge_skip_samples": -1}}
}
JSON

"$build_dir/config_json_fuzz" -max_total_time="$seconds" -max_len=20000 \
  -artifact_prefix="$build_dir/artifacts/" "$build_dir/corpus"
