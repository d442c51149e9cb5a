#!/usr/bin/env bash
# Prints the line and branch coverage of src/ gathered by the tests of a
# coverage build (preset "coverage"), lists the files below the threshold,
# and fails when the line coverage of src/ is below it.
#
#   tools/coverage.sh [build-dir] [minimum-line-percent]
#
# The last line reads "coverage: lines L% (c/t), branches B% (c/t)".
set -u -o pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/coverage}
minimum=${2:-95}

if ! command -v gcovr >/dev/null 2>&1; then
  echo "coverage: gcovr is not installed" >&2
  exit 2
fi

report=$build/coverage.txt
# Branches the compiler adds for exception cleanup are not the code's own.
if ! gcovr --root "$root" --filter "$root/src/" --object-directory "$build" \
  --exclude-throw-branches --exclude-unreachable-branches \
  --txt "$report" --print-summary >"$build/coverage-summary.txt" 2>"$build/coverage.log"; then
  cat "$build/coverage.log" >&2
  echo "coverage: gcovr failed" >&2
  exit 2
fi
gcovr --root "$root" --filter "$root/src/" --object-directory "$build" \
  --exclude-throw-branches --exclude-unreachable-branches \
  --txt "$build/coverage-branches.txt" --branches >/dev/null 2>&1 || true

# "lines: 97.1% (1234 out of 1271)" and "branches: ..." from the summary.
read -r line_percent line_covered line_total < <(
  sed -nE 's/^lines: ([0-9.]+)% \(([0-9]+) out of ([0-9]+)\).*/\1 \2 \3/p' "$build/coverage-summary.txt")
read -r branch_percent branch_covered branch_total < <(
  sed -nE 's/^branches: ([0-9.]+)% \(([0-9]+) out of ([0-9]+)\).*/\1 \2 \3/p' "$build/coverage-summary.txt")
if [ -z "${line_percent:-}" ]; then
  echo "coverage: no line figures in $build/coverage-summary.txt" >&2
  exit 2
fi

# Files under the threshold, with their missing lines.
awk -v minimum="$minimum" '
  $1 ~ /^src\// && $4 ~ /%$/ {
    percent = $4; sub(/%/, "", percent)
    if (percent + 0 < minimum) { print "  " $0 }
  }' "$report"

echo "coverage: lines ${line_percent}% (${line_covered}/${line_total}), branches ${branch_percent:-?}% (${branch_covered:-?}/${branch_total:-?})"
awk -v value="$line_percent" -v minimum="$minimum" 'BEGIN { exit !(value + 0 >= minimum) }' || {
  echo "coverage: line coverage of src/ is below ${minimum}% (details: $report)" >&2
  exit 1
}
