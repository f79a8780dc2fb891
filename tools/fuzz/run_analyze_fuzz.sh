#!/usr/bin/env bash
# Fuzzes the way from two WAV images to the results document and the report page:
# tools/fuzz/run_analyze_fuzz.sh [seconds] (default 60). See run.sh.
exec "$(dirname "$0")/run.sh" analyze "${1:-60}"
