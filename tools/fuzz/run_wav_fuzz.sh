#!/usr/bin/env bash
# Builds the WAV decoder fuzzer with clang (libFuzzer + ASan + UBSan) and runs it.
#   tools/fuzz/run_wav_fuzz.sh [seconds]     default 60 seconds, one process
#   FUZZ_DIR   work directory (default: build-fuzz); new inputs collect in $FUZZ_DIR/corpus,
#              crashes are written to $FUZZ_DIR/crash-*
# libFuzzer's runtime comes with clang (Debian: libclang-rt-14-dev when missing).
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-60}
work=${FUZZ_DIR:-build-fuzz}
mkdir -p "$work/corpus"
clang++ -std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
    -Isrc tools/fuzz/wav_fuzz.cpp src/audio/wav_reader.cpp src/audio/wav_writer.cpp -o "$work/wav_fuzz"
# Seed with the committed malformed files and the real-world files.
cp -n tests/data/wav_corpus/*.wav tests/data/interop/*.wav "$work/corpus/"
"$work/wav_fuzz" -max_total_time="$seconds" -max_len=8192 -dict=tools/fuzz/wav.dict \
    -artifact_prefix="$work/" -print_final_stats=1 "$work/corpus"
