#!/usr/bin/env bash
# Runs a program once on the C library's allocator and once with the drop-in
# malloc preloaded, and fails unless both runs write the same standard output
# and end with the same status.
#
# With --chunks N the preloaded run uses a copy of the pool program (the
# command's executable, or --pool-program, which the command must then start
# from @WORK@/bin) beside a ".mem" of N chunks, and the heap statistics of the
# pool program must say that no request of pooled size went to the C library
# for want of a chunk: the pool itself carried the run. Every process writes
# its statistics to @WORK@/stats/run.<pid>; a command whose programs rename
# theirs (g++ -wrapper) names the pool program's with --stats-name.
# Without --chunks the statistics are only printed, to size N from their peak
# line. --require-stats fails the test when no process wrote any, that is
# when the drop-in was not loaded.
#
# --write-estimate FILE writes to FILE the largest CHUNKS that the sizing
# lines of the pool program's statistics give (the value to try where a line
# gives only a lower bound); --chunks-from FILE reads N from such a file, so
# that one test's run sizes another's pool.
#
# In the command, @WORK@ stands for a scratch directory of the test.
#
# usage: run_program.sh --preload LIBRARY [--chunks N | --chunks-from FILE]
#          [--write-estimate FILE] [--pool-program PATH] [--stats-name NAME]
#          [--require-stats] [--stdin FILE] [--env NAME=VALUE]...
#          -- COMMAND [ARG]...
set -u -o pipefail

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

preload=
chunks=
estimate_file=
pool_program=
own_program=0
stats_name=run
require_stats=0
stdin_file=/dev/null
environment=()
while [ $# -gt 0 ]; do
  case $1 in
    --preload) preload=$2; shift 2 ;;
    --chunks) chunks=$2; shift 2 ;;
    --chunks-from)
      [ -s "$2" ] || fail "no CHUNKS to read in $2: did the run that writes it fail?"
      chunks=$(cat "$2")
      shift 2 ;;
    --write-estimate) estimate_file=$2; shift 2 ;;
    --pool-program) pool_program=$2; shift 2 ;;
    --stats-name) stats_name=$2; shift 2 ;;
    --require-stats) require_stats=1; shift ;;
    --stdin) stdin_file=$2; shift 2 ;;
    --env) environment+=("$2"); shift 2 ;;
    --) shift; break ;;
    *) fail "unknown option $1" ;;
  esac
done
[ $# -gt 0 ] || fail "no command given"
[ -n "$preload" ] || fail "no library to preload (--preload)"
[ -f "$preload" ] || fail "the library to preload does not exist: $preload"
[ -r "$stdin_file" ] || fail "cannot read $stdin_file"

# The mkdtemp letters are alphanumeric, so a copied program's ".mem" (named
# from the last dot of its whole path) stays inside this directory unless
# TMPDIR itself has a dot, which the check below catches.
work=$(mktemp -d "${TMPDIR:-/tmp}/quendal-dropin-XXXXXX") || fail "cannot create a scratch directory"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin" "$work/stats"

if [ -z "$pool_program" ]; then
  own_program=1
  pool_program=$(command -v "$1") || fail "program not found: $1 (is its package installed?)"
fi
[ -x "$pool_program" ] || fail "program not found: $pool_program (is its package installed?)"
pool_program=$(readlink -f "$pool_program")

pool_copy=
if [ -n "$chunks" ]; then
  pool_copy="$work/bin/$(basename "$pool_program")"
  cp "$pool_program" "$pool_copy" || fail "cannot copy $pool_program"
  mem="${pool_copy%.*}.mem"
  [ "$(dirname "$mem")" = "$work/bin" ] ||
    fail "the .mem of $pool_copy would be $mem, outside the scratch directory (a dot in TMPDIR?)"
  printf 'CHUNKS %s  CHUNK_SIZE 2048 SEG_SIZE 1024\n' "$chunks" >"$mem"
fi

# The command with @WORK@ filled in, and started from the given program when
# the pool program is the command's own.
command_for() {
  local program=$1
  shift
  local word
  run_command=()
  if [ "$own_program" -eq 1 ]; then
    run_command+=("$program")
    shift
  fi
  for word in "$@"; do
    run_command+=("${word//@WORK@/$work}")
  done
}

command_for "$pool_program" "$@"
env -u LD_PRELOAD -u QUENDAL_MALLOC_STATS "${environment[@]}" "${run_command[@]}" \
  <"$stdin_file" >"$work/plain.out" 2>"$work/plain.err"
plain_status=$?
if [ "$plain_status" -ne 0 ] || [ ! -s "$work/plain.out" ]; then
  tail -20 "$work/plain.err" >&2
  fail "the program fails on its own, without the drop-in (status $plain_status): ${run_command[*]}"
fi

command_for "${pool_copy:-$pool_program}" "$@"
env "${environment[@]}" LD_PRELOAD="$preload" QUENDAL_MALLOC_STATS="$work/stats/run.%p" \
  "${run_command[@]}" <"$stdin_file" >"$work/dropin.out" 2>"$work/dropin.err"
dropin_status=$?
echo "command: LD_PRELOAD=$preload ${run_command[*]}"
echo "output: $(wc -l <"$work/plain.out") lines, $(wc -c <"$work/plain.out") bytes"
echo "exit status: $plain_status without the drop-in, $dropin_status with it"

failed=0
if [ "$dropin_status" -ne "$plain_status" ]; then
  tail -20 "$work/dropin.err" >&2
  echo "FAIL: exit status $dropin_status with the drop-in, $plain_status without" >&2
  failed=1
fi
if ! cmp -s "$work/plain.out" "$work/dropin.out"; then
  echo "FAIL: standard output differs (< without the drop-in, > with it):" >&2
  diff "$work/plain.out" "$work/dropin.out" | head -40 >&2
  failed=1
fi

# The statistics lines of every process, named by the file they came in.
shopt -s nullglob
all_stats=("$work"/stats/*)
for file in "${all_stats[@]}"; do
  grep -E "to the extra heap:|^CHUNKS " "$file" | sed "s|^|$(basename "$file"): |"
done
if [ ${#all_stats[@]} -eq 0 ]; then
  echo "no heap statistics were written"
  if [ "$require_stats" -eq 1 ]; then
    echo "FAIL: no process wrote heap statistics: the drop-in was not loaded" >&2
    failed=1
  fi
fi

if [ -n "$estimate_file" ]; then
  # The second word of the sizing line is the value to give CHUNKS.
  estimate=$(cat "$work/stats/$stats_name".* 2>/dev/null | sed -n 's/^CHUNKS \([0-9][0-9]*\) .*/\1/p' |
    sort -n | tail -n 1)
  if [ -z "$estimate" ]; then
    echo "FAIL: no sizing line in the statistics named $stats_name.<pid>" >&2
    failed=1
  else
    echo "estimate: CHUNKS $estimate, written to $estimate_file"
    printf '%s\n' "$estimate" >"$estimate_file"
  fi
fi

if [ -n "$chunks" ]; then
  echo "pool: $pool_copy with CHUNKS $chunks"
  pool_stats=("$work/stats/$stats_name".*)
  if [ ${#pool_stats[@]} -eq 0 ]; then
    echo "FAIL: no heap statistics named $stats_name.<pid> were written" >&2
    failed=1
  fi
  for file in "${pool_stats[@]}"; do
    if ! grep -q "to the extra heap: 0 requests of pooled size with no chunk left" "$file"; then
      echo "FAIL: $(basename "$file"): the pool ran out of chunks with CHUNKS $chunks" >&2
      failed=1
    fi
  done
fi
exit "$failed"
