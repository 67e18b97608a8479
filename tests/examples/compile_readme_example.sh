#!/usr/bin/env bash
# Extracts the C++ example that README.md marks with "<!-- readme-example -->", compiles it
# against the built libquiv and runs it, so the README's example cannot drift from the library.
# Usage: compile_readme_example.sh SOURCE_DIR BUILD_DIR "EXTRA_FLAGS"
set -euo pipefail
src=$1 build=$2 flags=${3:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk '/<!-- readme-example -->/{armed=1; next}
     armed && /^```cpp/{inside=1; next}
     inside && /^```/{exit}
     inside{print}' "$src/README.md" > "$work/example.cpp"
[ -s "$work/example.cpp" ] || { echo "README.md has no marked C++ example"; exit 1; }
lib=$(find "$build/src" -maxdepth 1 -name 'libquiv.so' | head -1)
# shellcheck disable=SC2086
g++ -std=c++20 -Wall -Wextra -Werror $flags -I"$src/src" "$work/example.cpp" \
  -o "$work/example" -L"$(dirname "$lib")" -lquiv
export QUIV_KEY_STORE="$work/keys" ASAN_OPTIONS=detect_leaks=0
LD_LIBRARY_PATH="$(dirname "$lib")" "$work/example"
