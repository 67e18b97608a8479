#!/usr/bin/env bash
# doc/guide.md: the pass-phrase table is what the code derives (regenerated and compared), and
# every recipe (a ```sh block after a "<!-- recipe -->" line) runs exactly as written, in order,
# in an empty folder with its own key store. The files the recipes take from "the Windows side"
# are made first with quiv, whose output is the library's, byte for byte what the pages made.
SOURCE_DIR=${QUIV_SOURCE_DIR:-$(cd "$(dirname "$0")/../.." && pwd)}
source "$(dirname "$0")/lib.sh" "$1"
GUIDE=$SOURCE_DIR/doc/guide.md

# The table.
"$SOURCE_DIR/doc/passphrase-table.sh" "$QUIV_BIN" >table.generated
sed -n '/<!-- passphrase-table:begin -->/,/<!-- passphrase-table:end -->/p' "$GUIDE" |
  sed '1d;$d' >table.guide
if cmp -s table.generated table.guide; then
  pass "the guide's pass-phrase table is the code's derivation"
else
  fail "the guide's pass-phrase table differs from doc/passphrase-table.sh: $(diff table.guide table.generated | head -5)"
fi

# What the Windows side made.
printf '<order id="42"><item>widgets</item></order>\n' >order.xml
printf 'order 42: 17 widgets\n' >order-original.txt
quiv enc -alg 3des -pass 'pass:correct horse battery' -outform hex -in order-original.txt -out order.hex
quiv genkey -container windows-box -create -exchange -exportable 2>/dev/null
quiv export -container windows-box -private -out exchange.blob
quiv genkey -container windows-signer -create -signature 2>/dev/null
quiv sign -container windows-signer -sha1 -in order.xml -out signature.bin
quiv export -container windows-signer -signature -out signer.pub.blob
quiv genkey -container partner -create -exchange 2>/dev/null
quiv export -container partner -outform pem -out partner.pub.pem

# The recipes, each in a shell of its own, with quiv on the PATH.
awk '/^<!-- recipe -->$/ {want = 1; next}
     want && /^```sh$/ {inside = 1; n++; next}
     inside && /^```$/ {inside = 0; want = 0; next}
     inside {print > ("recipe" n ".sh")}' "$GUIDE"
count=$(ls recipe*.sh | wc -l)
((count >= 5)) && pass "the guide has $count recipes" || fail "only $count recipes found"
mkdir bin && ln -s "$QUIV_BIN" bin/quiv
for ((i = 1; i <= count; i++)); do
  if PATH="$WORK/bin:$PATH" bash -euo pipefail "recipe$i.sh" >"recipe$i.out" 2>"recipe$i.err"; then
    pass "recipe $i runs"
  else
    fail "recipe $i fails: $(cat "recipe$i.err" | head -5)"
  fi
done
expect_files_equal "recipe 1 decrypts the page's file" order-original.txt order.txt
grep -q "OpenSSL reads the key" recipe2.out && pass "recipe 2: OpenSSL reads the PEM key" || fail "recipe 2 output"
expect_eq "recipe 2 shows the imported pair" "exchange  key pair: RSA, 1024 bits" "$(grep '^exchange' recipe2.out)"
expect_eq "recipe 3: OpenSSL and quiv both verify the Windows signature" "Verified OK Verified OK" \
  "$(tr '\n' ' ' <recipe3.out | sed 's/ $//')"
expect_eq "recipe 4: quiv verifies OpenSSL's signature" "Verified OK" "$(cat recipe4.out)"
grep -q "the partner reads the order" recipe6.out && pass "recipe 6: the partner decrypts" || fail "recipe 6 output"
finish
