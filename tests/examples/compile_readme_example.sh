#!/usr/bin/env bash
# Extracts every C++ and C example that README.md marks with "<!-- readme-example -->", compiles
# each against the built libquiv and runs it, so the README's examples cannot drift from the
# library.
# Usage: compile_readme_example.sh SOURCE_DIR BUILD_DIR "EXTRA_FLAGS"
set -euo pipefail
src=$1 build=$2 flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Each marker arms the next ```cpp or ```c block; the blocks go to example1.cpp, example2.c, ...
awk -v dir="$work" '/<!-- readme-example -->/{armed=1; next}
     armed && /^```(cpp|c)$/{inside=1; armed=0; n++; ext=substr($0, 4); next}
     inside && /^```/{inside=0; next}
     inside{print > (dir "/example" n "." ext)}' "$src/README.md"
ls "$work"/example*.cpp >/dev/null 2>&1 || { echo "README.md has no marked C++ example"; exit 1; }
lib=$(find "$build/src" -maxdepth 1 -name 'libquiv.so' | head -1)
export QUIV_KEY_STORE="$work/keys" QUIV_REGISTRY="$work/registry" ASAN_OPTIONS=detect_leaks=0
for source in "$work"/example*.cpp; do
  echo "== $(basename "$source")"
  # shellcheck disable=SC2086
  g++ -std=c++20 -Wall -Wextra -Werror $flags -I"$src/src" "$source" \
    -o "${source%.cpp}" -L"$(dirname "$lib")" -lquiv
  LD_LIBRARY_PATH="$(dirname "$lib")" "${source%.cpp}"
done
for source in "$work"/example*.c; do
  [ -e "$source" ] || continue
  echo "== $(basename "$source")"
  # shellcheck disable=SC2086
  gcc -std=c11 -Wall -Wextra -Werror $flags -I"$src/src" "$source" \
    -o "${source%.c}" -L"$(dirname "$lib")" -lquiv
  LD_LIBRARY_PATH="$(dirname "$lib")" "${source%.c}"
done
