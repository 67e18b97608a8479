#!/usr/bin/env bash
# Checks the expected layout list (ComLayoutFields.h), which the C and C++ tests hold quiv_com.h
# to, against the platform's own C headers: compiles it for the 64-bit Windows target with clang
# and the mingw-w64 headers, syntax only.
# Usage: check_platform_layout.sh CLANG TEST_SOURCE_DIR
set -euo pipefail
clang=$1
here=$2
include=/usr/share/mingw-w64/include
if [[ ! -f $include/oaidl.h ]]; then
  echo "$include/oaidl.h is missing (Debian package mingw-w64-common)" >&2
  exit 1
fi
resource=$("$clang" -print-resource-dir)
"$clang" --target=x86_64-w64-mingw32 -nostdinc -isystem "$include" -isystem "$resource/include" \
  -I "$here" -fsyntax-only -x c "$here/server/PlatformLayoutCheck.c"
echo "layout list agrees with the platform headers"
