#!/usr/bin/env bash
# quiv enc / dec: OpenSSL decrypts quiv's output given the key it derives itself from the
# phrase; round trips through files, pipes, hex and every -pass form; sections; tiny inputs; no
# output file after a failure.
source "$(dirname "$0")/lib.sh" "$1"

head -c $((1024 * 1024 + 3)) /dev/urandom >big.bin  # four sections and a short tail
printf 'Attack at dawn.' >short.txt
: >empty.bin
printf 'x' >one.bin

# OpenSSL as the oracle: name of the cipher, key bytes, IV option.
check_oracle() {
  local alg=$1 ossl=$2 bytes=$3 hash=$4 provider=$5 file=$6 iv=(-iv 0000000000000000)
  [[ $alg == rc4 ]] && iv=()
  local key
  key=$(derived_key "$hash" "$bytes" "p@ss phrase")
  quiv enc -alg "$alg" -hash "$hash" -provider "$provider" -pass "pass:p@ss phrase" -in "$file" \
    -out "$file.$alg.enc"
  if openssl enc -d "-$ossl" "${OSSL_LEGACY[@]}" -K "$key" "${iv[@]}" -in "$file.$alg.enc" \
    -out "$file.$alg.ossl" 2>/dev/null && cmp -s "$file" "$file.$alg.ossl"; then
    pass "openssl decrypts $alg ($hash, $provider) of $file"
  else
    fail "openssl does not decrypt $alg ($hash, $provider) of $file with key $key"
  fi
  [[ $alg == *des* ]] && key=$(odd_parity "$key")
  expect_eq "-P shows the key OpenSSL derived ($alg $hash $provider)" "key=${key^^}" \
    "$(quiv enc -alg "$alg" -hash "$hash" -provider "$provider" -pass "pass:p@ss phrase" -P)"
}
for f in short.txt big.bin one.bin empty.bin; do
  check_oracle rc4 rc4 16 md5 enhanced "$f"
  check_oracle 3des des-ede3-cbc 24 md5 enhanced "$f"
done
check_oracle rc2 rc2-cbc 16 md5 enhanced short.txt
check_oracle rc2 rc2-cbc 16 sha1 strong big.bin
check_oracle des des-cbc 8 sha1 enhanced short.txt
check_oracle 3des112 des-ede-cbc 16 md5 enhanced big.bin
check_oracle 3des des-ede3-cbc 24 sha1 enhanced short.txt
check_oracle rc4 rc4-40 5 md5 base short.txt  # base: 40-bit default, unsalted
check_oracle rc2 rc2-40-cbc 5 md5 base short.txt

# Mode and IV, against OpenSSL too.
key=$(derived_key md5 24 "p@ss phrase")
quiv enc -alg 3des -mode ecb -pass "pass:p@ss phrase" -in big.bin -out ecb.enc
openssl enc -d -des-ede3 -K "$key" -in ecb.enc -out ecb.out
expect_files_equal "3des ecb decrypts with openssl" big.bin ecb.out
quiv enc -alg 3des -iv 0102030405060708 -pass "pass:p@ss phrase" -in short.txt -out iv.enc
openssl enc -d -des-ede3-cbc -K "$key" -iv 0102030405060708 -in iv.enc -out iv.out
expect_files_equal "3des cbc with -iv decrypts with openssl" short.txt iv.out
expect_eq "-P with -iv shows both" "key=$(odd_parity "$key" | tr a-f A-F) iv=0102030405060708" \
  "$(quiv enc -alg 3des -iv 0102030405060708 -pass "pass:p@ss phrase" -P | tr '\n' ' ' | sed 's/ $//')"
for mode in cfb ecb cbc; do
  quiv enc -alg rc2 -mode $mode -pass pass:m -in big.bin | quiv dec -alg rc2 -mode $mode -pass pass:m >m.out
  expect_files_equal "rc2 $mode round trip through pipes" big.bin m.out
done

# Every -pass form gives the same ciphertext.
quiv enc -pass pass:secret -in short.txt -out ref.enc
QUIV_TEST_PASS=secret quiv enc -pass env:QUIV_TEST_PASS -in short.txt -out env.enc
expect_files_equal "-pass env: equals pass:" ref.enc env.enc
printf 'secret\nsecond line ignored\n' >phrase.txt
quiv enc -pass file:phrase.txt -in short.txt -out file.enc
expect_files_equal "-pass file: takes the first line" ref.enc file.enc
printf 'secret\r\n' >phrase-crlf.txt
quiv enc -pass file:phrase-crlf.txt -in short.txt -out crlf.enc
expect_files_equal "-pass file: drops a CR LF" ref.enc crlf.enc
printf 'secret\n' | quiv enc -pass stdin -in short.txt -out stdin.enc
expect_files_equal "-pass stdin" ref.enc stdin.enc
{ printf 'secret\n'; cat short.txt; } | quiv enc -pass stdin >stdin-data.enc
expect_files_equal "-pass stdin, then the data on stdin" ref.enc stdin-data.enc
quiv enc -pass pass:secret -passform hex -P >/dev/null 2>&1 && fail "odd hex phrase accepted" || pass "odd hex phrase refused"
expect_eq "-passform hex: the string's own bytes" "$(quiv enc -pass pass:secret -P)" \
  "$(quiv enc -passform hex -pass pass:730065006300720065007400 -P)"

# Hex in and out, round trips of every cipher through files.
quiv enc -alg des -pass pass:h -outform hex -in big.bin -out big.hex
expect_eq "hex output is hex text without a line break" "" "$(tr -d '0-9A-F' <big.hex)"
quiv dec -alg des -pass pass:h -inform hex -in big.hex -out hex.out
expect_files_equal "hex round trip" big.bin hex.out
fold -w 64 big.hex | tr 'A-F' 'a-f' | quiv dec -alg des -pass pass:h -inform hex >folded.out
expect_files_equal "hex input in lower case with line breaks" big.bin folded.out
for alg in rc2 rc4 des 3des 3des112; do
  for f in one.bin big.bin; do
    quiv enc -alg $alg -pass pass:rt -in $f -out rt.enc
    quiv dec -alg $alg -pass pass:rt -in rt.enc -out rt.out
    expect_files_equal "$alg round trip of $f" $f rt.out
  done
done

# No output after a failure; an existing file keeps its content.
quiv enc -alg 3des -pass pass:right -in big.bin -out right.enc
expect_status "wrong pass phrase fails" 1 quiv dec -alg 3des -pass pass:wrong -in right.enc -out plain.out
[[ -e plain.out ]] && fail "a failed decryption left plain.out" || pass "no output file after a wrong pass phrase"
echo "old content" >keep.txt
expect_status "wrong pass phrase fails again" 1 quiv dec -alg 3des -pass pass:wrong -in right.enc -out keep.txt
expect_eq "an existing output keeps its content" "old content" "$(cat keep.txt)"
[[ -z "$(ls -A | grep '\.quiv-')" ]] && pass "no temporary files left" || fail "temporary files left: $(ls -A)"
expect_status "missing input" 1 quiv enc -pass pass:x -in no-such-file -out x.enc
[[ -e x.enc ]] && fail "output made for a missing input" || pass "no output for a missing input"

# The phrase given by env:, file: or stdin never appears in the process's arguments.
# (The command waits on its input, a pipe held open, while its arguments are read.)
{ sleep 1; printf 'data'; } | QUIV_TEST_PASS=never-in-argv quiv enc -pass env:QUIV_TEST_PASS -out slow.enc &
sleep 0.3
pid=$(pgrep -n -f "enc -pass env:QUIV_TEST_PASS -out slow.enc" || true)
args=$([[ -n "$pid" ]] && tr '\0' ' ' </proc/$pid/cmdline 2>/dev/null || true)
wait
[[ -n "$args" ]] && pass "the running command's arguments were read" || fail "could not read the arguments"
[[ "$args" == *never-in-argv* ]] && fail "the phrase shows in the arguments: $args" || pass "no phrase in the arguments ($args)"

# The progress bar: on a terminal for a large file, never in a pipe or for a small file.
head -c $((9 * 1024 * 1024)) /dev/zero >bar.bin
quiv enc -alg rc4 -pass pass:b -in bar.bin -out bar.enc 2>bar.err
expect_eq "no progress bar when standard error is not a terminal" "" "$(cat bar.err)"
if command -v script >/dev/null; then
  script -qec "$QUIV_BIN enc -alg rc4 -pass pass:b -in bar.bin -out bar2.enc" /dev/null >bar.tty </dev/null
  grep -q '100%' bar.tty && pass "a progress bar on a terminal" || fail "no progress bar on a terminal: $(head -c 200 bar.tty)"
  script -qec "$QUIV_BIN enc -alg rc4 -pass pass:b -in short.txt -out bar3.enc" /dev/null >bar.tty </dev/null
  grep -q '%' bar.tty && fail "a progress bar for a small file" || pass "no progress bar for a small file"
fi

# Usage errors.
expect_status "no -pass and no -key" 2 quiv enc -in short.txt
expect_status "both -pass and -key" 2 quiv enc -pass pass:x -key k.blob
expect_status "unknown -alg" 2 quiv enc -pass pass:x -alg aes
expect_status "blank phrase refused" 2 quiv enc -pass "pass:   " -in short.txt
expect_status "unknown option" 2 quiv dec -pass pass:x -frobnicate
expect_status "bad -keylen" 2 quiv enc -pass pass:x -keylen many
expect_status "a key length the provider refuses" 1 quiv enc -pass pass:x -alg rc4 -keylen 44 -in short.txt
expect_status "3des on the base provider" 1 quiv enc -pass pass:x -alg 3des -provider base -in short.txt
finish
