#!/usr/bin/env bash
# Fuzzes the WAV decoder: tools/fuzz/run_wav_fuzz.sh [seconds] (default 60). See run.sh.
exec "$(dirname "$0")/run.sh" wav "${1:-60}"
