#!/usr/bin/env bash
# quiv container, genkey, export, import, sign, verify, wrap, unwrap: against OpenSSL's own key
# and signature tools.
source "$(dirname "$0")/lib.sh" "$1"

# Containers.
expect_eq "an empty store lists nothing" "" "$(quiv container list)"
quiv container create Alice
expect_eq "list after create" "Alice" "$(quiv container list)"
expect_status "create twice" 1 quiv container create alice
expect_eq "show a new container" "container: Alice (user store)|exchange  key pair: none|signature key pair: none" \
  "$(quiv container show alice | tr '\n' '|' | sed 's/|$//')"
quiv genkey -container alice -exchange -bits 1024 -exportable 2>/dev/null
quiv genkey -container bob -create -signature -bits 768 2>/dev/null
expect_eq "show after genkey" "exchange  key pair: RSA, 1024 bits|signature key pair: none" \
  "$(quiv container show alice | tail -2 | tr '\n' '|' | sed 's/|$//')"
expect_status "genkey without a slot" 2 quiv genkey -container alice
expect_status "genkey in a missing container" 1 quiv genkey -container nobody -exchange
expect_status "show a missing container" 1 quiv container show nobody
expect_status "unknown container action" 2 quiv container rename alice
quiv container create temp
quiv container delete TEMP
expect_eq "delete (names ignore case)" "Alice bob" "$(quiv container list | sort | tr '\n' ' ' | sed 's/ $//')"
quiv container create -machine shared
expect_eq "the machine store is separate" "shared" "$(quiv container list -machine)"

# Export: OpenSSL reads every form.
quiv export -container alice -outform pem -out alice.pub.pem
openssl pkey -pubin -in alice.pub.pem -noout && pass "openssl pkey reads the PEM public key" || fail "PEM public key"
quiv export -container alice -outform der -out alice.pub.der
openssl pkey -pubin -inform DER -in alice.pub.der -noout && pass "openssl reads DER" || fail "DER public key"
quiv export -container alice -out alice.pub.blob
expect_eq "PUBLICKEYBLOB: header and length" "0602000000a40000525341310004000001000100 148" \
  "$(head -c 20 alice.pub.blob | xxd -p) $(wc -c <alice.pub.blob | tr -d ' ')"
openssl pkey -pubin -inform MSBLOB -in alice.pub.blob -outform DER -out alice.pub.fromblob.der
expect_files_equal "the msblob and the DER export hold the same key" alice.pub.der alice.pub.fromblob.der
quiv export -container alice -outform hex -out alice.pub.hex
expect_eq "hex export" "$(xxd -p -u -c 1000 alice.pub.blob)" "$(cat alice.pub.hex)"
quiv export -container alice -private -outform pem -out alice.key.pem
openssl rsa -in alice.key.pem -check -noout >/dev/null && pass "openssl rsa -check accepts the private key" || fail "private PEM"
expect_eq "a private key file is 0600" "600" "$(stat -c %a alice.key.pem)"
quiv export -container alice -private -pass pass:pkcs8 -outform pem -out alice.key.enc.pem
grep -q 'BEGIN ENCRYPTED PRIVATE KEY' alice.key.enc.pem && pass "-pass gives encrypted PKCS#8" || fail "encrypted PKCS#8"
openssl pkey -in alice.key.enc.pem -passin pass:pkcs8 -noout && pass "openssl opens it with the pass phrase" || fail "PKCS#8 pass phrase"
expect_status "a non-exportable pair stays in" 1 quiv export -container bob -signature -private -out bob.key
[[ -e bob.key ]] && fail "a refused export left a file" || pass "no file after a refused export"
expect_status "no such pair" 1 quiv export -container bob -exchange

# Import: keys written by OpenSSL, and the blobs, in and out again unchanged.
openssl genrsa -out ossl.pem 1024 2>/dev/null
quiv import -container carol -create -signature -exportable -in ossl.pem 2>/dev/null
quiv export -container carol -signature -private -outform der -out carol.der
openssl pkcs8 -topk8 -nocrypt -in ossl.pem -outform DER -out ossl.pkcs8.der
expect_files_equal "an OpenSSL key comes back out byte for byte (PKCS#8 DER)" ossl.pkcs8.der carol.der
openssl rsa -in ossl.pem -traditional -out ossl.pkcs1.pem 2>/dev/null
quiv import -container carol1 -create -exchange -in ossl.pkcs1.pem 2>/dev/null && pass "PKCS#1 PEM imports" || fail "PKCS#1 import"
openssl pkcs8 -topk8 -in ossl.pem -passout pass:sesame -out ossl.enc.pem
quiv import -container carol2 -create -in ossl.enc.pem -pass pass:sesame 2>/dev/null && pass "encrypted PKCS#8 imports" || fail "encrypted import"
expect_status "encrypted PKCS#8 with a wrong phrase" 1 quiv import -container carol3 -create -in ossl.enc.pem -pass pass:wrong
expect_eq "a failed import with -create leaves no container" "" "$(quiv container list | grep -i carol3 || true)"
openssl rsa -in ossl.pem -outform MSBLOB -out ossl.blob 2>/dev/null
quiv import -container dave -create -exportable -in ossl.blob 2>/dev/null
quiv export -container dave -private -out dave.blob
expect_files_equal "a PRIVATEKEYBLOB goes in and out unchanged" ossl.blob dave.blob
quiv export -container alice -private -pass pass:wrapped -alg 3des -out alice.wrapped.blob
expect_eq "a wrapped blob keeps its header in clear" "0702000000a40000" "$(head -c 8 alice.wrapped.blob | xxd -p)"
quiv import -container erin -create -exportable -in alice.wrapped.blob -pass pass:wrapped -alg 3des 2>/dev/null
quiv export -container erin -private -outform der -out erin.der
quiv export -container alice -private -outform der -out alice.der
expect_files_equal "a pass-phrase-wrapped blob imports" alice.der erin.der
expect_status "import of a public key" 1 quiv import -container frank -create -in alice.pub.pem
expect_status "import of garbage" 1 quiv import -container frank -create -in alice.pub.hex -inform der

# Conversion of key files without a container.
quiv export -in ossl.blob -private -outform der -out conv.der
openssl pkcs8 -topk8 -nocrypt -in ossl.pem -outform DER -out ossl.k8.der
expect_files_equal "export -in: a PRIVATEKEYBLOB file to PKCS#8" ossl.k8.der conv.der
quiv export -in alice.pub.blob -outform pem -out conv.pub.pem
expect_files_equal "export -in: a PUBLICKEYBLOB file to PEM" alice.pub.pem conv.pub.pem
quiv export -in alice.pub.pem -out conv.pub.blob
expect_files_equal "export -in: PEM back to a PUBLICKEYBLOB" alice.pub.blob conv.pub.blob
expect_status "export -in of a public key with -private" 1 quiv export -in alice.pub.pem -private
expect_status "export with both -in and -container" 2 quiv export -in alice.pub.pem -container alice

# Signatures both ways with OpenSSL.
head -c 5000 /dev/urandom >data.bin
quiv export -container bob -signature -outform pem -out bob.pub.pem
for md in md5 sha1; do
  quiv sign -container bob -$md -reverse -in data.bin -out data.$md.rsig
  openssl dgst -$md -verify bob.pub.pem -signature data.$md.rsig data.bin >/dev/null &&
    pass "openssl verifies quiv sign -reverse -$md" || fail "openssl verify -$md"
  openssl dgst -$md -sign ossl.pem -out data.$md.ossl data.bin
  openssl pkey -in ossl.pem -pubout -out ossl.pub.pem
  expect_status "quiv verifies openssl's -$md signature with -reverse" 0 \
    quiv verify -$md -reverse -pubin ossl.pub.pem -signature data.$md.ossl -in data.bin
done
quiv sign -container bob -in data.bin -out data.sig
expect_eq "the signature is as long as the modulus" "96" "$(wc -c <data.sig | tr -d ' ')"
expect_eq "little-endian is the reverse of big-endian" "$(quiv sign -container bob -reverse -in data.bin | xxd -p -c 1000)" \
  "$(xxd -p -c 1 data.sig | tac | tr -d '\n')"
expect_status "verify with the container" 0 quiv verify -container bob -signature data.sig -in data.bin
quiv sign -container bob -outform hex -in data.bin -out data.sig.hex
expect_status "verify a hex signature with a PEM key" 0 quiv verify -pubin bob.pub.pem -signature data.sig.hex -in data.bin
printf 'X' | dd of=data.bin bs=1 seek=100 conv=notrunc 2>/dev/null
expect_status "a changed message fails (exit 1)" 1 quiv verify -container bob -signature data.sig -in data.bin
grep -q 'Verification failure' .out && pass "and says so" || fail "no verdict printed"
expect_status "the wrong hash fails" 1 quiv verify -sha1 -container bob -signature data.sig -in data.bin
expect_status "verify needs a key" 2 quiv verify -signature data.sig -in data.bin
expect_status "sign with an exchange-only container's signature pair" 1 quiv sign -container alice -in data.bin

# Wrap for a partner, unwrap with the container.
printf 'payment order 42' >order.txt
quiv wrap -pubin alice.pub.pem -pass pass:shared -alg 3des -out order.key
expect_eq "a SIMPLEBLOB: header and length" "0102000003660000 140" "$(head -c 8 order.key | xxd -p) $(wc -c <order.key | tr -d ' ')"
quiv enc -alg 3des -pass pass:shared -in order.txt -out order.enc
expect_eq "dec -key with the container" "payment order 42" "$(quiv dec -key order.key -container alice -in order.enc)"
expect_eq "unwrap shows the key" "CALG_3DES, 192 bits|$(quiv enc -alg 3des -pass pass:shared -P)" \
  "$(quiv unwrap -container alice -in order.key -P | tr '\n' '|' | sed 's/|$//')"
quiv wrap -pubin alice.pub.blob -pass pass:shared -alg rc4 -outform hex -out order.key.hex
quiv enc -alg rc4 -pass pass:shared -in order.txt -out order.rc4
expect_eq "dec -key with a hex SIMPLEBLOB" "payment order 42" "$(quiv dec -key order.key.hex -container alice -in order.rc4)"
quiv unwrap -container alice -in order.key -pubin bob.pub.pem -out order.rewrapped >/dev/null
expect_status "a key wrapped for bob does not open with alice's key" 1 quiv dec -key order.rewrapped -container alice -in order.enc
expect_status "wrap without -pass" 2 quiv wrap -pubin alice.pub.pem
expect_status "unwrap with a container without an exchange pair" 1 quiv unwrap -container bob -in order.key
finish
