#!/usr/bin/env bash
# Runs one browser test script of this folder (the first argument, e.g. pages_test.py) with
# the remaining arguments, in Debian's headless Chromium.
# Exit status 77 (reported as skipped) only when Chromium is not installed.
set -euo pipefail
if [ ! -x /usr/bin/chromium ]; then
  echo "SKIP: /usr/bin/chromium is not installed (apt-get install chromium chromium-driver python3-selenium)"
  exit 77
fi
if [ ! -x /usr/bin/python3 ]; then
  echo "error: Chromium is installed but /usr/bin/python3 is missing"
  exit 1
fi
# Debian's own Python, where python3-selenium lives (not whatever python3 PATH finds first).
script=$1
shift
exec /usr/bin/python3 "$(dirname "$0")/$script" "$@"
