#!/usr/bin/env bash
# Installs the built library into a temporary prefix, checks that only public headers were
# installed and that each compiles with nothing but the installed tree, then builds a consumer
# (which uses every public class) with find_package(QUIV) and another with pkg-config, and runs
# both.
# Usage: run_install_test.sh BUILD_DIR SOURCE_DIR "EXTRA_CXX_FLAGS"
set -euo pipefail
build=$1 src=$2 flags=${3:-}
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
include=$(find "$prefix" -type d -path "*/include/quiv" | head -1)
# The library's internal classes and the provider's internals stay out of the installed tree.
for internal in data/CConvert.h keys/CKeyTools.h errors/CErrQUIV.h errors/CErrAPI.h \
  errors/ErrorTrap.h errors/NteErrorNames.def errors/WinErrorNames.def platform/PlatformSeam.h \
  platform/IPlatform.h platform/HandleTable.h; do
  if [ -e "$include/$internal" ]; then echo "internal header installed: $internal"; exit 1; fi
done
# Every installed header stands on its own with the installed tree only.
while IFS= read -r header; do
  relative=${header#"$include"/}
  printf '#include "%s"\n' "$relative" |
    g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I"$include" -x c++ - ||
    { echo "installed header does not compile on its own: $relative"; exit 1; }
done < <(find "$include" -name '*.h' | sort)
export QUIV_KEY_STORE="$prefix/keys"
cmake -S "$src/tests/install/consumer" -B "$prefix/consumer-build" \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$prefix/consumer-build" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libquiv.so.1' | head -1)")
export ASAN_OPTIONS=detect_leaks=0
LD_LIBRARY_PATH="$libdir" "$prefix/consumer-build/consumer"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046
g++ $flags "$src/tests/install/consumer/main.cpp" -o "$prefix/pc-consumer" $(pkg-config --cflags --libs quiv)
LD_LIBRARY_PATH="$libdir" "$prefix/pc-consumer"
# The command runs from the prefix without help (its run path finds libquiv) and has its page.
export QUIV_KEY_STORE="$prefix/keys"
"$prefix/bin/quiv" dgst -sha1 "$src/README.md" >/dev/null
test -s "$prefix/share/man/man1/quiv.1"
echo "install test passed"
