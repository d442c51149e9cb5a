#!/usr/bin/env bash
# Builds and tests every configuration CI checks, from the presets in
# CMakePresets.json, and prints one summary line per configuration and a
# total. With arguments, runs only the configurations named.
set -u -o pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

all_configurations=(default cxx03)
if [ $# -gt 0 ]; then
  configurations=("$@")
else
  configurations=("${all_configurations[@]}")
fi

jobs=$(nproc 2>/dev/null || echo 2)

# Installs the Debian packages a configuration needs when they are missing.
need_packages() {
  local missing=()
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
      missing+=("$package")
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "== installing ${missing[*]}"
    if [ "$(id -u)" -eq 0 ]; then
      apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
    else
      sudo apt-get update -qq && sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
    fi
  fi
}

need_packages cmake g++ libgtest-dev libgmock-dev pkg-config

total_passed=0
total_failed=0
summaries=()

# Runs CTest for a preset and adds its counts to the totals.
run_ctest() {
  local name=$1
  local log="build/$name/ctest.log"
  ctest --preset "$name" 2>&1 | tee "$log" | grep -E "tests passed|\*\*\*|Not Run" || true
  local line
  line=$(grep -E "tests passed, [0-9]+ tests failed out of [0-9]+" "$log" | tail -1)
  local failed total
  failed=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\1/' <<<"$line")
  total=$(sed -E 's/.* ([0-9]+) tests failed out of ([0-9]+).*/\2/' <<<"$line")
  if [ -z "$line" ]; then
    failed=1
    total=1
  fi
  local passed=$((total - failed))
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  summaries+=("$name: $passed passed, $failed failed")
}

for name in "${configurations[@]}"; do
  echo "== $name"
  if ! cmake --preset "$name" >"/tmp/quendal-configure-$name.log" 2>&1; then
    cat "/tmp/quendal-configure-$name.log"
    summaries+=("$name: configure failed")
    total_failed=$((total_failed + 1))
    continue
  fi
  if ! cmake --build --preset "$name" -j "$jobs" >"build/$name/build.log" 2>&1; then
    grep -E "error|Error" "build/$name/build.log" | head -40
    summaries+=("$name: build failed")
    total_failed=$((total_failed + 1))
    continue
  fi
  case $name in
    cxx03)
      summaries+=("$name: library built as C++03 with warnings as errors")
      ;;
    *)
      run_ctest "$name"
      ;;
  esac
done

echo
for line in "${summaries[@]}"; do
  echo "$line"
done
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
