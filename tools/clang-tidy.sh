#!/usr/bin/env bash
# Runs clang-tidy with the checked-in .clang-tidy over the sources of src/
# that a configured build compiles (default: build/default; the QNX platform
# sources are not built on the host). The last line reads
# "tidy: N files, N findings"; exits non-zero on any finding.
#
#   tools/clang-tidy.sh [build-dir]
set -u -o pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/default}
jobs=${QUENDAL_JOBS:-2}

if [ ! -f "$build/compile_commands.json" ]; then
  echo "tidy: $build/compile_commands.json is missing (configure with a preset first)" >&2
  exit 2
fi

# The compile commands are GCC's: drop the flags clang does not know.
database=$build/tidy
mkdir -p "$database"
sed -e 's/ -fno-gnu-unique//g' "$build/compile_commands.json" >"$database/compile_commands.json"

mapfile -t sources < <(grep -oE '"file": *"[^"]*/src/[^"]*\.cpp"' "$database/compile_commands.json" |
  sed -E 's/.*"([^"]*)"$/\1/' | sort -u)
log=$build/clang-tidy.log
printf '%s\n' "${sources[@]}" |
  xargs -P "$jobs" -I{} clang-tidy --quiet -p "$database" {} >"$log" 2>&1
status=$?
pattern='^[^ ].*:[0-9]+:[0-9]+: (warning|error):'
findings=$(grep -E "$pattern" "$log" | sort -u | wc -l)
if [ "$findings" -gt 0 ] || [ $status -ne 0 ]; then
  grep -E "$pattern" "$log" | sort -u | head -50
fi
echo "tidy: ${#sources[@]} files, $findings findings"
[ "$findings" -eq 0 ] && [ $status -eq 0 ]
