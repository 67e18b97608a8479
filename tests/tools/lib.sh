# Shared helpers of the quiv command's shell tests. Each test script sources this file with the
# quiv binary's path as $1; it gets a fresh temporary folder as its working directory and an
# empty key store of its own (QUIV_KEY_STORE), both removed when it ends.
set -euo pipefail

QUIV_BIN=$(realpath "$1")
quiv() { "$QUIV_BIN" "$@"; }
export -f quiv 2>/dev/null || true
export QUIV_BIN

WORK=$(mktemp -d "${TMPDIR:-/tmp}/quiv-test.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
export QUIV_KEY_STORE="$WORK/keystore"
cd "$WORK"

# OpenSSL's legacy ciphers (RC2, RC4, DES) need the legacy provider.
OSSL_LEGACY=(-provider legacy -provider default)

FAILURES=0
fail() {
  echo "FAIL: $*" >&2
  FAILURES=$((FAILURES + 1))
}
pass() { echo "ok: $*"; }

# expect_eq WHAT EXPECTED ACTUAL
expect_eq() {
  if [[ "$2" == "$3" ]]; then pass "$1"; else fail "$1: expected '$2', got '$3'"; fi
}

# expect_status WHAT STATUS COMMAND...: runs the command, compares its exit status.
expect_status() {
  local what=$1 want=$2
  shift 2
  local got=0
  "$@" >"$WORK/.out" 2>"$WORK/.err" || got=$?
  if [[ "$got" == "$want" ]]; then
    pass "$what"
  else
    fail "$what: exit status $got, expected $want; stderr: $(head -c 400 "$WORK/.err")"
  fi
}

# expect_files_equal WHAT A B
expect_files_equal() {
  if cmp -s "$2" "$3"; then pass "$1"; else fail "$1: $2 and $3 differ"; fi
}

# The bytes of a pass phrase as the library hashes them: UTF-16LE code units and a NUL
# character (ASCII phrases only, which is all these tests use).
phrase_bytes() {
  local phrase=$1 i
  for ((i = 0; i < ${#phrase}; i++)); do printf '%s\0' "${phrase:i:1}"; done
  printf '\0\0'
}

# hash_hex md5|sha1 < data: the lower-case hex digest.
hash_hex() { openssl dgst "-$1" -binary | xxd -p -c 256; }

# The key the providers derive from a phrase, computed with OpenSSL alone: the first N bytes of
# the hash; when the hash is shorter (3DES), the two digests of the 64-byte blocks 0x36.. and
# 0x5C.. with the hash XORed into their start. Parity bits are left as they are (the ciphers
# ignore them). Usage: derived_key md5|sha1 BYTES PHRASE
derived_key() {
  local alg=$1 n=$2 phrase=$3 h
  h=$(phrase_bytes "$phrase" | hash_hex "$alg")
  if ((n * 2 <= ${#h})); then
    echo "${h:0:n*2}"
    return
  fi
  local inner="" outer="" i byte
  for ((i = 0; i < 64; i++)); do
    byte=0
    if ((i * 2 < ${#h})); then byte=$((16#${h:i*2:2})); fi
    inner+=$(printf '%02x' $((byte ^ 0x36)))
    outer+=$(printf '%02x' $((byte ^ 0x5c)))
  done
  local expanded
  expanded=$(echo "$inner" | xxd -r -p | hash_hex "$alg")$(echo "$outer" | xxd -r -p | hash_hex "$alg")
  echo "${expanded:0:n*2}"
}

# The DES family's keys have odd parity forced on every byte (bit 0 completes an odd count).
odd_parity() {
  local hex=$1 out="" i byte ones b
  for ((i = 0; i < ${#hex}; i += 2)); do
    byte=$((16#${hex:i:2} & 0xFE))
    ones=0
    for ((b = 1; b < 8; b++)); do ones=$((ones + ((byte >> b) & 1))); done
    ((ones % 2 == 0)) && byte=$((byte | 1))
    out+=$(printf '%02x' $byte)
  done
  echo "$out"
}

finish() {
  if ((FAILURES > 0)); then
    echo "$FAILURES check(s) failed" >&2
    exit 1
  fi
  echo "all checks passed"
}
