// Checks that hold the recorded-vector tests together: every vector of windows-csp.json belongs to
// exactly one test program, its provider columns are ones the harness knows, and the constants
// and error codes the file writes next to its numbers are those of wincrypt.h.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "platform/wincrypt.h"
#include "support/VectorFile.h"
#include "support/VectorProvider.h"
#include "support/VectorSuites.h"

namespace quiv::test {
namespace {

TEST(VectorsCoverage, EveryCategoryBelongsToExactlyOneSuite) {
  std::map<std::string, int> claims;
  for (const auto suite : kAllSuites) {
    for (const auto category : suite) ++claims[std::string(category)];
  }
  const auto categories = WindowsVectors().Categories();
  for (const auto& category : categories) {
    EXPECT_EQ(claims[category], 1) << "category " << category;
  }
  for (const auto& [category, count] : claims) {
    EXPECT_NE(std::find(categories.begin(), categories.end(), category), categories.end())
        << "suite claims category " << category << " that the file does not have";
  }
}

TEST(VectorsCoverage, IdsAreUniqueAndProvidersKnown) {
  const auto ids = WindowsVectors().Ids();
  const std::set<std::string> unique(ids.begin(), ids.end());
  EXPECT_EQ(unique.size(), ids.size());
  for (const auto suite : kAllSuites) {
    for (const auto& param : WindowsVectors().Params(suite)) {
      EXPECT_NO_THROW(VectorProvider{param.provider}) << param.id;
    }
  }
}

TEST(VectorsCoverage, FileConstantsAreThoseOfTheHeader) {
  const std::map<std::string, uint32_t> header = {
      {"CALG_MD2", CALG_MD2},
      {"CALG_MD4", CALG_MD4},
      {"CALG_MD5", CALG_MD5},
      {"CALG_SHA", CALG_SHA},
      {"CALG_SHA1", CALG_SHA1},
      {"CALG_MAC", CALG_MAC},
      {"CALG_SSL3_SHAMD5", CALG_SSL3_SHAMD5},
      {"CALG_HMAC", CALG_HMAC},
      {"CALG_TLS1PRF", CALG_TLS1PRF},
      {"CALG_SHA_256", CALG_SHA_256},
      {"CALG_SHA_384", CALG_SHA_384},
      {"CALG_SHA_512", CALG_SHA_512},
      {"CALG_RSA_SIGN", CALG_RSA_SIGN},
      {"CALG_RSA_KEYX", CALG_RSA_KEYX},
      {"CALG_DES", CALG_DES},
      {"CALG_RC2", CALG_RC2},
      {"CALG_3DES", CALG_3DES},
      {"CALG_3DES_112", CALG_3DES_112},
      {"CALG_RC5", CALG_RC5},
      {"CALG_AES_128", CALG_AES_128},
      {"CALG_AES_192", CALG_AES_192},
      {"CALG_AES_256", CALG_AES_256},
      {"CALG_AES", CALG_AES},
      {"CALG_RC4", CALG_RC4},
      {"KP_IV", KP_IV},
      {"KP_SALT", KP_SALT},
      {"KP_PADDING", KP_PADDING},
      {"KP_MODE", KP_MODE},
      {"KP_MODE_BITS", KP_MODE_BITS},
      {"KP_PERMISSIONS", KP_PERMISSIONS},
      {"KP_ALGID", KP_ALGID},
      {"KP_BLOCKLEN", KP_BLOCKLEN},
      {"KP_KEYLEN", KP_KEYLEN},
      {"KP_SALT_EX", KP_SALT_EX},
      {"KP_EFFECTIVE_KEYLEN", KP_EFFECTIVE_KEYLEN},
      {"HP_ALGID", HP_ALGID},
      {"HP_HASHVAL", HP_HASHVAL},
      {"HP_HASHSIZE", HP_HASHSIZE},
      {"HP_HMAC_INFO", HP_HMAC_INFO},
      {"PP_ENUMCONTAINERS", PP_ENUMCONTAINERS},
      {"PP_CONTAINER", PP_CONTAINER},
      {"PP_PROVTYPE", PP_PROVTYPE},
      {"PP_KEYSTORAGE", PP_KEYSTORAGE},
      {"PP_KEYSET_TYPE", PP_KEYSET_TYPE},
      {"PP_SIG_KEYSIZE_INC", PP_SIG_KEYSIZE_INC},
      {"PP_KEYX_KEYSIZE_INC", PP_KEYX_KEYSIZE_INC},
      {"PP_UNIQUE_CONTAINER", PP_UNIQUE_CONTAINER},
      {"PP_KEYSPEC", PP_KEYSPEC},
      {"CRYPT_MODE_CBC", CRYPT_MODE_CBC},
      {"CRYPT_MODE_ECB", CRYPT_MODE_ECB},
      {"CRYPT_MODE_OFB", CRYPT_MODE_OFB},
      {"CRYPT_MODE_CFB", CRYPT_MODE_CFB},
      {"CRYPT_ENCRYPT", CRYPT_ENCRYPT},
      {"CRYPT_DECRYPT", CRYPT_DECRYPT},
      {"CRYPT_EXPORT", CRYPT_EXPORT},
      {"CRYPT_READ", CRYPT_READ},
      {"CRYPT_WRITE", CRYPT_WRITE},
      {"CRYPT_MAC", CRYPT_MAC},
      {"CRYPT_EXPORTABLE", CRYPT_EXPORTABLE},
      {"CRYPT_CREATE_SALT", CRYPT_CREATE_SALT},
      {"CRYPT_NO_SALT", CRYPT_NO_SALT},
      {"CRYPT_OAEP", CRYPT_OAEP},
      {"CRYPT_IPSEC_HMAC_KEY", CRYPT_IPSEC_HMAC_KEY},
      {"AT_KEYEXCHANGE", AT_KEYEXCHANGE},
      {"AT_SIGNATURE", AT_SIGNATURE},
      {"CRYPT_VERIFYCONTEXT", CRYPT_VERIFYCONTEXT},
      {"CRYPT_NEWKEYSET", CRYPT_NEWKEYSET},
      {"CRYPT_DELETEKEYSET", CRYPT_DELETEKEYSET},
      {"CRYPT_MACHINE_KEYSET", CRYPT_MACHINE_KEYSET},
      {"SIMPLEBLOB", SIMPLEBLOB},
      {"PUBLICKEYBLOB", PUBLICKEYBLOB},
      {"PRIVATEKEYBLOB", PRIVATEKEYBLOB},
      {"PLAINTEXTKEYBLOB", PLAINTEXTKEYBLOB},
      {"CUR_BLOB_VERSION", CUR_BLOB_VERSION},
      {"PROV_RSA_FULL", PROV_RSA_FULL},
  };
  size_t compared = 0;
  for (const auto& [group, table] : WindowsVectors().Constants().items()) {
    for (const auto& [name, value] : table.items()) {
      const auto it = header.find(name);
      if (it == header.end()) continue;  // descriptive or not in our header (derived values)
      EXPECT_EQ(value.get<uint32_t>(), it->second) << group << "." << name;
      ++compared;
    }
  }
  EXPECT_GE(compared, header.size()) << "a header constant is missing from the file's tables";
}

TEST(VectorsCoverage, FileErrorCodesAreThoseOfTheHeader) {
  const std::map<std::string, uint32_t> header = {
      {"NTE_BAD_KEY", static_cast<uint32_t>(NTE_BAD_KEY)},
      {"NTE_BAD_LEN", static_cast<uint32_t>(NTE_BAD_LEN)},
      {"NTE_BAD_DATA", static_cast<uint32_t>(NTE_BAD_DATA)},
      {"NTE_BAD_SIGNATURE", static_cast<uint32_t>(NTE_BAD_SIGNATURE)},
      {"NTE_BAD_ALGID", static_cast<uint32_t>(NTE_BAD_ALGID)},
      {"NTE_BAD_FLAGS", static_cast<uint32_t>(NTE_BAD_FLAGS)},
      {"NTE_BAD_TYPE", static_cast<uint32_t>(NTE_BAD_TYPE)},
      {"NTE_BAD_KEY_STATE", static_cast<uint32_t>(NTE_BAD_KEY_STATE)},
      {"NTE_BAD_HASH_STATE", static_cast<uint32_t>(NTE_BAD_HASH_STATE)},
      {"NTE_NO_KEY", static_cast<uint32_t>(NTE_NO_KEY)},
      {"NTE_PERM", static_cast<uint32_t>(NTE_PERM)},
      {"NTE_NOT_FOUND", static_cast<uint32_t>(NTE_NOT_FOUND)},
      {"NTE_DOUBLE_ENCRYPT", static_cast<uint32_t>(NTE_DOUBLE_ENCRYPT)},
      {"NTE_BAD_PROV_TYPE", static_cast<uint32_t>(NTE_BAD_PROV_TYPE)},
      {"NTE_BAD_KEYSET", static_cast<uint32_t>(NTE_BAD_KEYSET)},
      {"NTE_PROV_TYPE_NOT_DEF", static_cast<uint32_t>(NTE_PROV_TYPE_NOT_DEF)},
      {"NTE_KEYSET_NOT_DEF", static_cast<uint32_t>(NTE_KEYSET_NOT_DEF)},
      {"NTE_FAIL", static_cast<uint32_t>(NTE_FAIL)},
      {"ERROR_INVALID_PARAMETER", ERROR_INVALID_PARAMETER},
      {"ERROR_MORE_DATA", ERROR_MORE_DATA},
      {"ERROR_NO_MORE_ITEMS", ERROR_NO_MORE_ITEMS},
      {"ERROR_INTERNAL_ERROR", ERROR_INTERNAL_ERROR},
  };
  for (const auto& [name, code] : header) {
    EXPECT_EQ(WindowsVectors().ErrorCode(name), code) << name;
  }
}

}  // namespace
}  // namespace quiv::test
