#!/usr/bin/env bash
# Fails when a C or C++ file of the repository differs from what clang-format
# makes of it with the checked-in .clang-format.
set -u -o pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files -co --exclude-standard '*.h' '*.c' '*.cpp' | grep -v '^build/')
unformatted=()
for file in "${files[@]}"; do
  if ! clang-format --dry-run --Werror "$file" >/dev/null 2>&1; then
    unformatted+=("$file")
  fi
done
for file in "${unformatted[@]}"; do
  echo "needs clang-format: $file"
done
echo "format: ${#files[@]} files, ${#unformatted[@]} need formatting"
[ ${#unformatted[@]} -eq 0 ]
