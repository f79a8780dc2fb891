#!/usr/bin/env bash
# Builds one libFuzzer harness with clang (ASan + UBSan) through CMake and runs it.
#   tools/fuzz/run.sh <wav|config_json|analyze> [seconds] [jobs]
#     seconds  total run time (default 60)
#     jobs     parallel fuzzing processes (default 1)
#   BUILD_DIR   build directory (default build-fuzz)
# The run works on build-fuzz/corpus/<name>, seeded from the committed corpus
# tools/fuzz/corpus/<name>; crashes go to build-fuzz/artifacts/<name>/. To fold new
# finds into the committed corpus (minimised):
#   build-fuzz/tools/fuzz/<name>_fuzz -merge=1 tools/fuzz/corpus/<name> build-fuzz/corpus/<name>
# Needs clang++ and its libFuzzer runtime (Debian: apt-get install clang; older releases
# also libclang-rt-<version>-dev).
set -euo pipefail
cd "$(dirname "$0")/../.."
name=${1:?usage: tools/fuzz/run.sh <wav|config_json|analyze> [seconds] [jobs]}
seconds=${2:-60}
jobs=${3:-1}
case "$name" in
  wav) max_len=8192 ;;
  config_json) max_len=20000 ;;
  analyze) max_len=8192 ;;
  *) echo "error: unknown harness '$name' (wav, config_json or analyze)" >&2; exit 1 ;;
esac
build_dir=${BUILD_DIR:-build-fuzz}

CXX=${CXX_FUZZ:-clang++} cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVELTRANE_FUZZ=ON -DVELTRANE_SANITIZE=ON -DVELTRANE_BUILD_TESTS=OFF -DVELTRANE_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build_dir" -j "$jobs" --target "${name}_fuzz"

corpus="$build_dir/corpus/$name"
artifacts="$build_dir/artifacts/$name"
mkdir -p "$corpus" "$artifacts"
cp -n tools/fuzz/corpus/"$name"/* "$corpus"/ 2>/dev/null || true

dict=()
[ -f "tools/fuzz/$name.dict" ] && dict=(-dict="tools/fuzz/$name.dict")
parallel=()
[ "$jobs" -gt 1 ] && parallel=(-jobs="$jobs" -workers="$jobs")
exec "$build_dir/tools/fuzz/${name}_fuzz" -max_total_time="$seconds" -max_len="$max_len" "${dict[@]}" \
  "${parallel[@]}" -artifact_prefix="$artifacts/" -print_final_stats=1 "$corpus"
