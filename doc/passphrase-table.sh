#!/usr/bin/env bash
# Prints the pass-phrase table of doc/guide.md from quiv's own derivation (quiv enc -P), so the
# table is what the code does. Usage: doc/passphrase-table.sh [path/to/quiv]
# tests/tools/guide_test.sh checks that the guide holds exactly this output.
set -euo pipefail
QUIV=${1:-quiv}
echo '| provider | -alg | -keylen | -hash | key bytes | key derived from "secret" (hex) |'
echo '|---|---|---|---|---|---|'
row() {
  local provider=$1 alg=$2 keylen=$3 hash=$4 key
  key=$("$QUIV" enc -provider "$provider" -alg "$alg" ${keylen:+-keylen "$keylen"} -hash "$hash" \
    -pass pass:secret -P)
  key=${key#key=}
  echo "| $provider | $alg | ${keylen:-default} | $hash | $((${#key} / 2)) | \`$key\` |"
}
row enhanced rc2 "" md5
row enhanced rc2 40 md5
row enhanced rc4 "" md5
row enhanced rc4 56 sha1
row strong rc4 "" md5
row base rc2 "" md5
row base rc4 "" sha1
row base rc4 56 md5
row enhanced des "" md5
row enhanced 3des112 "" md5
row enhanced 3des112 "" sha1
row enhanced 3des "" md5
row enhanced 3des "" sha1
