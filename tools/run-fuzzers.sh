#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, replays their checked-in corpora
# (the regression run), then fuzzes each one for a bounded time and prints one
# line per fuzzer. Exits non-zero when any input crashes or trips a check.
#
#   tools/run-fuzzers.sh [seconds]      seconds per fuzzer, default 60
#
# The build and the grown corpora live in build/fuzz (QUENDAL_FUZZ_BUILD_DIR
# overrides it); crash inputs are saved in build/fuzz/artifacts/<fuzzer>/.
set -u -o pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
build=${QUENDAL_FUZZ_BUILD_DIR:-$root/build/fuzz}
fuzzers=(config_reader pool)

case $seconds in
  '' | *[!0-9]*)
    echo "usage: $0 [seconds]" >&2
    exit 2
    ;;
esac

if ! command -v clang++ >/dev/null 2>&1; then
  echo "== installing clang"
  if [ "$(id -u)" -eq 0 ]; then
    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq clang >/dev/null
  else
    sudo apt-get update -qq && sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq clang >/dev/null
  fi || {
    echo "fuzz: clang could not be installed" >&2
    exit 1
  }
fi

jobs=$(nproc 2>/dev/null || echo 2)
mkdir -p "$build"
if ! CC=clang CXX=clang++ cmake -S "$root" -B "$build" \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQUENDAL_BUILD_FUZZERS=ON -DQUENDAL_BUILD_TESTS=OFF -DQUENDAL_BUILD_EXAMPLES=OFF \
  >"$build/configure.log" 2>&1; then
  cat "$build/configure.log"
  echo "fuzz: configure failed"
  exit 1
fi
targets=()
for name in "${fuzzers[@]}"; do
  targets+=("quendal_fuzz_$name")
done
if ! cmake --build "$build" --target "${targets[@]}" -j "$jobs" >"$build/build.log" 2>&1; then
  grep -E "error|Error" "$build/build.log" | head -40
  echo "fuzz: build failed"
  exit 1
fi

# Regression run, then fuzzing, of one fuzzer; prints its lines and fails
# when an input crashes or trips a check.
fuzz_one() {
  local name=$1
  local binary="$build/tests/fuzz/quendal_fuzz_$name"
  local seeds="$root/tests/fuzz/corpus/$name"
  local corpus="$build/corpus/$name"
  local artifacts="$build/artifacts/$name/"
  local log="$build/$name.log"
  mkdir -p "$corpus" "$artifacts"
  local options=(-artifact_prefix="$artifacts" -timeout=30 -rss_limit_mb=4096)
  if [ -f "$root/tests/fuzz/$name.dict" ]; then
    options+=(-dict="$root/tests/fuzz/$name.dict")
  fi
  case $name in
    config_reader) options+=(-max_len=12000) ;;
    *) options+=(-max_len=4096) ;;
  esac

  # The regression run: every checked-in input once, nothing new.
  if ! "$binary" "${options[@]}" -runs=0 "$seeds" >"$build/$name.regression.log" 2>&1; then
    grep -E "====|ERROR|SUMMARY|Test unit written" "$build/$name.regression.log" | head -20
    echo "fuzz $name: regression corpus FAILED (log: $build/$name.regression.log)"
    return 1
  fi

  "$binary" "${options[@]}" -max_total_time="$seconds" -print_final_stats=1 \
    "$corpus" "$seeds" >"$log" 2>&1
  local result=$?
  local runs coverage crash
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  coverage=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -1)
  if [ $result -eq 0 ]; then
    echo "fuzz $name: ${runs:-0} runs, ${coverage:-cov: ? ft: ?}, ok"
  else
    grep -E "====|ERROR|SUMMARY|Test unit written" "$log" | head -20
    crash=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -1)
    echo "fuzz $name: ${runs:-0} runs, ${coverage:-cov: ? ft: ?}, CRASH ${crash:-(log: $log)}"
    return 1
  fi
}

# Each fuzzer is single-threaded: with a core for each they run side by side,
# each for its full time, and their lines are printed in order afterwards.
status=0
if [ "$jobs" -ge "${#fuzzers[@]}" ]; then
  pids=()
  for name in "${fuzzers[@]}"; do
    fuzz_one "$name" >"$build/$name.summary" 2>&1 &
    pids+=($!)
  done
  for k in "${!fuzzers[@]}"; do
    wait "${pids[$k]}" || status=1
    cat "$build/${fuzzers[$k]}.summary"
  done
else
  for name in "${fuzzers[@]}"; do
    fuzz_one "$name" || status=1
  done
fi
exit $status
