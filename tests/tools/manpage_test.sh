#!/usr/bin/env bash
# doc/quiv.1 is generated from the help texts (doc/make-man.sh); it must be the current output,
# so the installed manual never disagrees with quiv -h.
SOURCE_DIR=${QUIV_SOURCE_DIR:-$(cd "$(dirname "$0")/../.." && pwd)}
source "$(dirname "$0")/lib.sh" "$1"
"$SOURCE_DIR/doc/make-man.sh" "$QUIV_BIN" >quiv.1
if cmp -s quiv.1 "$SOURCE_DIR/doc/quiv.1"; then
  pass "doc/quiv.1 is up to date"
else
  fail "doc/quiv.1 is stale: run doc/make-man.sh build/test/tools/quiv/quiv > doc/quiv.1"
fi
for c in enc dec dgst sign verify export import wrap unwrap container genkey rand algs errstr; do
  grep -q "^\.SS $c\$" quiv.1 && pass "the page has $c" || fail "the page misses $c"
done
finish
