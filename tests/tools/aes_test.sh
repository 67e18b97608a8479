#!/usr/bin/env bash
# quiv enc/dec -provider aes against OpenSSL: the key is the first bytes of the hash of the
# phrase as the library hashes it (UTF-16LE code units and one NUL character).
source "$(dirname "$0")/lib.sh" "$1"

head -c $((300 * 1024 + 5)) /dev/urandom >data.bin
printf 'x' >one.bin
iv=000102030405060708090A0B0C0D0E0F
phrase_bytes() { printf '%s' "$1" | iconv -f UTF-8 -t UTF-16LE; printf '\0\0'; }
key_of() { phrase_bytes "$1" | openssl dgst -"$2" -r | cut -c1-$(($3 / 4)); }

for bits in 128 192 256; do
  for hash in sha256 sha512; do
    key=$(key_of secret $hash $bits)
    quiv enc -provider aes -alg aes$bits -hash $hash -pass pass:secret -iv $iv -in data.bin -out q.enc
    openssl enc -d -aes-$bits-cbc -K "$key" -iv $iv -in q.enc -out o.dec 2>/dev/null
    cmp -s o.dec data.bin && pass "openssl decrypts enc aes$bits/$hash" ||
      fail "openssl does not decrypt enc aes$bits/$hash"
    openssl enc -aes-$bits-cbc -K "$key" -iv $iv -in data.bin -out o.enc
    quiv dec -provider aes -alg aes$bits -hash $hash -pass pass:secret -iv $iv -in o.enc -out q.dec
    cmp -s q.dec data.bin && pass "dec aes$bits/$hash reads openssl's" || fail "dec aes$bits/$hash"
  done
done

# MD5 and SHA-1 are expanded for every AES size: each of 64 bytes 0x36 and 0x5C XORed with the
# hash, hashed again, the two values joined.
expanded_key() {
  local h pads="" p i b hexpad
  h=$(phrase_bytes "$1" | openssl dgst -"$2" -r | cut -d' ' -f1)
  for p in 0x36 0x5c; do
    hexpad=""
    for ((i = 0; i < 64; i++)); do
      b=0
      ((i * 2 < ${#h})) && b=$((16#${h:i*2:2}))
      hexpad+=$(printf '%02x' $((b ^ p)))
    done
    pads+=$(printf '%s' "$hexpad" | xxd -r -p | openssl dgst -"$2" -r | cut -d' ' -f1)
  done
  printf '%s' "${pads:0:$(($3 / 4))}"
}
for hash in md5 sha1; do
  key=$(expanded_key secret $hash 256)
  quiv enc -provider aes -alg aes256 -hash $hash -pass pass:secret -iv $iv -in data.bin -out q.enc
  openssl enc -d -aes-256-cbc -K "$key" -iv $iv -in q.enc -out o.dec 2>/dev/null || true
  cmp -s o.dec data.bin && pass "openssl decrypts enc aes256/$hash (expanded hash)" ||
    fail "openssl does not decrypt enc aes256/$hash with the expanded hash"
done

key=$(key_of secret sha256 256)
quiv enc -provider aes -mode ecb -pass pass:secret -outform hex -in one.bin -out e.hex
expect_eq "ecb, one byte, hex, default aes256/sha256" \
  "$(openssl enc -aes-256-ecb -K "$key" -in one.bin | od -An -tx1 | tr -d ' \n' | tr a-f A-F)" \
  "$(tr -d '\n' <e.hex)"
quiv enc -provider aes -mode cfb -pass env:HOME -iv $iv -in data.bin |
  quiv dec -provider aes -mode cfb -pass env:HOME -iv $iv | cmp -s - data.bin &&
  pass "cfb round trip through a pipe" || fail "cfb round trip through a pipe"
quiv enc -provider aes -pass pass:secret -in data.bin -out q.enc
expect_status "a wrong phrase fails" 1 quiv dec -provider aes -pass pass:wrong -in q.enc -out w.dec
[[ ! -e w.dec ]] && pass "a wrong phrase leaves no output" || fail "a wrong phrase left w.dec"

expect_status "aes on the enhanced provider" 2 quiv enc -alg aes256 -pass pass:x -in one.bin
expect_status "sha256 on the base provider" 2 quiv enc -provider base -hash sha256 -pass pass:x -in one.bin
expect_status "rc2 on the aes provider" 2 quiv enc -provider aes -alg rc2 -pass pass:x -in one.bin
expect_status "a short AES IV" 2 quiv enc -provider aes -iv 0001 -pass pass:x -in one.bin
finish
