#!/usr/bin/env bash
# Fuzzes the settings reader: tools/fuzz/run_config_fuzz.sh [seconds] (default 60). See run.sh.
exec "$(dirname "$0")/run.sh" config_json "${1:-60}"
