// OpensslEnc: the `openssl` command-line program as an independent implementation that tests
// compare our ciphers and hashes against. The program runs as a separate process: no OpenSSL
// header or library is needed here, and the bytes cross through temporary files, never through
// shell strings.
//
// Every failure is a test failure (ADD_FAILURE) that carries the command and what it printed,
// and the result is then empty: openssl missing from PATH, a non-zero exit, and also any message
// on stderr with a zero exit, because `openssl enc` only warns when a key or IV is shorter than
// the cipher wants and pads it with zeros, which would quietly compare against another key.
#ifndef QUIV_TESTS_SUPPORT_OPENSSLENC_H
#define QUIV_TESTS_SUPPORT_OPENSSLENC_H

#include <cstdint>
#include <string>
#include <vector>

namespace quiv::test {

struct EncOptions {
  bool decrypt = false;  // -d instead of -e
  bool pad = true;       // PKCS#5 padding; false adds -nopad
};

// `openssl enc -<cipher> -K <keyHex> [-iv <ivHex>] -nosalt` over the input, with the legacy
// provider loaded next to the default one (RC2, RC4 and single DES live there in OpenSSL 3). An
// empty ivHex leaves -iv out, as ECB modes and stream ciphers take none.
std::vector<uint8_t> OpensslEnc(const std::string& cipher, const std::string& keyHex,
                                const std::string& ivHex, const std::vector<uint8_t>& input,
                                EncOptions options = {});

// `openssl dgst -<digest> -binary` over the input, e.g. digest "md5" or "sha1".
std::vector<uint8_t> OpensslDigest(const std::string& digest, const std::vector<uint8_t>& input);

// Whether an `openssl` program is on PATH (scripts/install-deps.sh installs one).
bool OpensslOnPath();

}  // namespace quiv::test

#endif
