#!/bin/sh
# Compiles a C++17 source with g++ in three steps (to assembly, to an object,
# linked), prints a digest of the assembly, which depends only on the
# source, and runs the result.
# usage: compile_and_run.sh COMPILER SCRATCH-DIRECTORY SOURCE
# The compiler looks for its programs in SCRATCH-DIRECTORY/bin first, where
# a test may have put a copy of cc1plus beside its own ".mem".
set -e
compiler=$1
scratch=$2
source=$3
compile() {
  "$compiler" -B"$scratch/bin/" -wrapper "$(dirname "$0")/stats_by_program.sh" "$@"
}
compile -std=c++17 -O1 -S "$source" -o "$scratch/compiled.s"
echo "assembly $(wc -l <"$scratch/compiled.s") lines, sha256 $(sha256sum <"$scratch/compiled.s" | cut -c1-16)"
compile -c "$scratch/compiled.s" -o "$scratch/compiled.o"
compile "$scratch/compiled.o" -o "$scratch/compiled"
"$scratch/compiled"
