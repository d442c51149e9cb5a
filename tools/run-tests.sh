#!/usr/bin/env bash
# Builds and tests every configuration CI checks, from the presets in
# CMakePresets.json, and prints one summary line per configuration and a
# total. With arguments, runs only the configurations named.
set -u -o pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

all_configurations=(format default cxx03 asan tsan ubsan portable i386 armhf portable-armhf coverage tidy fuzz)
if [ $# -gt 0 ]; then
  configurations=("$@")
else
  configurations=("${all_configurations[@]}")
fi

# CI machines have two cores; more jobs only add memory pressure.
jobs=${QUENDAL_JOBS:-2}

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

# Packages each configuration needs beyond the common ones. g++-multilib is
# avoided on purpose: it removes the ARM cross compiler.
packages_for() {
  case $1 in
    i386) echo "g++-i686-linux-gnu qemu-user googletest" ;;
    armhf | portable-armhf) echo "g++-arm-linux-gnueabihf qemu-user googletest" ;;
    # valgrind: the memory checker tests (tests/heap/checkers) run under it.
    # python3, sqlite3, perl: the real programs of the DropIn tests.
    default | portable) echo "valgrind python3 sqlite3 perl" ;;
    coverage) echo "gcovr valgrind python3 sqlite3 perl" ;;
    tidy) echo "clang-tidy" ;;
    format) echo "clang-format git" ;;
    fuzz) echo "clang" ;;
  esac
}

common_packages="cmake g++ libgtest-dev libgmock-dev googletest pkg-config"
wanted=()
for name in "${configurations[@]}"; do
  wanted+=($(packages_for "$name"))
done
need_packages $common_packages "${wanted[@]}"

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

# Configures and builds a preset; false (with a summary line) on failure.
build_preset() {
  local name=$1
  if ! cmake --preset "$name" >"/tmp/quendal-configure-$name.log" 2>&1; then
    cat "/tmp/quendal-configure-$name.log"
    summaries+=("$name: configure failed")
    total_failed=$((total_failed + 1))
    return 1
  fi
  if ! cmake --build --preset "$name" -j "$jobs" >"build/$name/build.log" 2>&1; then
    grep -E "error|Error" "build/$name/build.log" | head -40
    summaries+=("$name: build failed")
    total_failed=$((total_failed + 1))
    return 1
  fi
}

# Runs a figure-printing tool; its last line is the summary.
run_tool() {
  local name=$1
  shift
  local log="build/$name.log"
  mkdir -p build
  "$@" 2>&1 | tee "$log"
  local status=${PIPESTATUS[0]}
  # The tool's own figure lines ("<name>: ..." or "<name> <part>: ..."),
  # joined; its last line when it printed none.
  local figures
  figures=$(grep -E "^$name[ :]" "$log" | sed -E "s/^$name:? ?//" | paste -sd ';' - | sed 's/;/; /g')
  if [ -z "$figures" ]; then
    figures=$(tail -1 "$log")
  fi
  if [ "$status" -eq 0 ]; then
    total_passed=$((total_passed + 1))
    summaries+=("$name: $figures")
  else
    total_failed=$((total_failed + 1))
    summaries+=("$name: FAILED ($figures)")
  fi
}

for name in "${configurations[@]}"; do
  echo "== $name"
  start=$SECONDS
  case $name in
    cxx03)
      build_preset "$name" && summaries+=("$name: library built as C++03 with warnings as errors")
      ;;
    coverage)
      # Counters from an earlier run would inflate the figures.
      if [ -d build/coverage ]; then
        find build/coverage -name '*.gcda' -delete
      fi
      build_preset "$name" && run_ctest "$name" && run_tool coverage bash tools/coverage.sh build/coverage
      ;;
    format)
      run_tool format bash tools/check-format.sh
      ;;
    tidy)
      if [ ! -f build/default/compile_commands.json ]; then
        cmake --preset default >/tmp/quendal-configure-default.log 2>&1
      fi
      run_tool tidy bash tools/clang-tidy.sh build/default
      ;;
    fuzz)
      if [ -f tools/run-fuzzers.sh ]; then
        run_tool fuzz bash tools/run-fuzzers.sh "${QUENDAL_FUZZ_SECONDS:-20}"
      else
        summaries+=("fuzz: tools/run-fuzzers.sh not present, skipped")
      fi
      ;;
    *)
      build_preset "$name" && run_ctest "$name"
      ;;
  esac
  echo "== $name took $((SECONDS - start)) s"
done

echo
for line in "${summaries[@]}"; do
  echo "$line"
done
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
