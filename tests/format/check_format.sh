#!/usr/bin/env bash
# Fails when a C++ file of the tree is not formatted as .clang-format says, naming the files
# (`make format` fixes them). Takes the files git tracks, or every C++ file outside build/ when
# the tree is not a git checkout.
# Usage: check_format.sh SOURCE_DIR
set -euo pipefail
cd "$1"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.hpp' '*.c')
else
  mapfile -t files < <(find . -path ./build -prune -o \( -name '*.cpp' -o -name '*.h' \) -print)
fi
# One clang-format run for all files; its complaints start with "path:line:col: error:".
if ! report=$(clang-format --dry-run -Werror "${files[@]}" 2>&1); then
  echo "not formatted (run make format):"
  grep -oE '^[^:]+:[0-9]+:[0-9]+: error' <<<"$report" | cut -d: -f1 | sort -u | sed 's/^/  /'
  exit 1
fi
echo "${#files[@]} files formatted"
