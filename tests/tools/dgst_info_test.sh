#!/usr/bin/env bash
# quiv dgst, rand, algs, errstr: digests and HMACs against OpenSSL, fingerprints, the provider's
# catalogue, random bytes and error names.
source "$(dirname "$0")/lib.sh" "$1"

head -c $((600 * 1024 + 1)) /dev/urandom >big.bin
printf 'abc' >abc.txt
printf 'x' >one.bin
: >empty.bin
for md in md5 sha1 md4; do
  for f in big.bin abc.txt one.bin empty.bin; do
    want=$(openssl dgst -$md "${OSSL_LEGACY[@]}" -r $f | cut -d' ' -f1)
    expect_eq "dgst -$md of $f equals openssl" "${want^^}  $f" "$(quiv dgst -$md $f)"
  done
done
expect_eq "dgst -md2 of abc (RFC 1319)" "DA853B0D3F88D99B30283A69E6DED6BB" "$(quiv dgst -md2 <abc.txt)"
expect_eq "dgst reads standard input" "900150983CD24FB0D6963F7D28E17F72" "$(cat abc.txt | quiv dgst)"
expect_eq "dgst of two files names each" "2" "$(quiv dgst abc.txt one.bin | wc -l)"
expect_eq "fingerprint with hyphens" "A999-3E36-4706-816A-BA3E-2571-7850-C26C-9CD0-D89D" \
  "$(quiv dgst -sha1 -fingerprint hyphens <abc.txt)"
expect_eq "fingerprint double-hyphens-spaced" "9001 -- 5098 -- 3CD2 -- 4FB0 -- D696 -- 3F7D -- 28E1 -- 7F72" \
  "$(quiv dgst -fingerprint double-hyphens-spaced <abc.txt)"
printf 'key' >hmac.key
for md in md5 sha1; do
  want=$(openssl dgst -$md -hmac key -r big.bin | cut -d' ' -f1)
  expect_eq "dgst -hmac -$md equals openssl" "${want^^}  big.bin" "$(quiv dgst -$md -hmac hmac.key big.bin)"
done
# SHA-2 on the AES provider, against OpenSSL; PROV_RSA_FULL providers refuse it as a usage error.
for md in sha256 sha384 sha512; do
  for f in big.bin one.bin empty.bin; do
    want=$(openssl dgst -$md -r $f | cut -d' ' -f1)
    expect_eq "dgst -$md of $f equals openssl" "${want^^}  $f" "$(quiv dgst -$md -provider aes $f)"
  done
  want=$(openssl dgst -$md -hmac key -r big.bin | cut -d' ' -f1)
  expect_eq "dgst -hmac -$md equals openssl" "${want^^}  big.bin" "$(quiv dgst -$md -hmac hmac.key big.bin)"
done
expect_status "sha256 on the enhanced provider" 2 quiv dgst -sha256 -provider enhanced abc.txt
expect_status "sha512 on the base provider" 2 quiv dgst -sha512 -provider base abc.txt
expect_status "sha256 with a fingerprint" 2 quiv dgst -sha256 -fingerprint hyphens abc.txt
quiv dgst -sha1 -out digest.txt abc.txt
expect_eq "dgst -out" "A9993E364706816ABA3E25717850C26C9CD0D89D  abc.txt" "$(cat digest.txt)"
expect_status "dgst of a missing file" 1 quiv dgst no-such-file
expect_status "two hashes at once" 2 quiv dgst -md5 -sha1 abc.txt
expect_status "hmac with md2" 2 quiv dgst -md2 -hmac hmac.key abc.txt
expect_status "unknown fingerprint format" 2 quiv dgst -fingerprint dots abc.txt

expect_eq "rand N gives N bytes" "100000" "$(quiv rand 100000 | wc -c)"
[[ "$(quiv rand -hex 16)" =~ ^[0-9A-F]{32}$ ]] && pass "rand -hex gives 2N hex digits" || fail "rand -hex"
[[ "$(quiv rand -hex 16)" != "$(quiv rand -hex 16)" ]] && pass "two rand calls differ" || fail "rand repeats itself"
quiv rand -out r.bin 64
expect_eq "rand -out" "64" "$(wc -c <r.bin | tr -d ' ')"
expect_status "rand without N" 2 quiv rand
expect_status "rand with a negative N" 2 quiv rand -5

expect_eq "algs: enhanced lists 14 algorithms" "14" "$(quiv algs | tail -n +2 | wc -l)"
expect_eq "algs: base lists 12" "12" "$(quiv algs -provider base | tail -n +2 | wc -l)"
expect_eq "algs -class symmetric on base" "CALG_RC2 CALG_RC4 CALG_DES" \
  "$(quiv algs -provider base -class symmetric | tail -n +2 | awk '{print $1}' | tr '\n' ' ' | sed 's/ $//')"
expect_eq "algs -class exchange on enhanced: RSA_KEYX 1024 384 16384" "CALG_RSA_KEYX 0xA400 1024 384 16384" \
  "$(quiv algs -class exchange | tail -n +2 | awk '{print $1, $2, $3, $4, $5}')"
expect_status "algs with an unknown class" 2 quiv algs -class fancy

expect_eq "errstr of NTE_BAD_DATA in hex" "0x80090005 (-2146893819) API error=NTE_BAD_DATA" "$(quiv errstr 0x80090005)"
expect_eq "errstr in signed decimal" "0x80090005 (-2146893819) API error=NTE_BAD_DATA" "$(quiv errstr -2146893819)"
expect_eq "errstr of a library code" "0x80040200 (-2147220992) QUIV error: (Undefined error, used in debugging.)" "$(quiv errstr '&H80040200')"
expect_eq "errstr of ERROR_MORE_DATA" "0x000000EA (234) API error=ERROR_MORE_DATA" "$(quiv errstr 234)"
expect_status "errstr of an unnamed code exits 1" 1 quiv errstr 0x12345
expect_status "errstr of text" 2 quiv errstr banana
finish
