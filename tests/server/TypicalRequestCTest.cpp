// The typical request performed from C through the entry points and Invoke by name alone
// (typical_request.c, no C++ class used) gives the same bytes as the same steps through the C++
// classes: the ciphertext of the pass-phrase key and the SHA-1 of it. The C program also wraps
// the session key, signs and verifies, and checks that nothing is left allocated.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "support/TempKeyStore.h"
#include "support/TempRegistry.h"

namespace quiv {
namespace {

std::string RunProgram(const char* path, int& status) {
  std::string output;
  FILE* pipe = popen(path, "r");
  if (pipe == nullptr) return output;
  char buffer[512];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  status = pclose(pipe);
  return output;
}

// The same steps through the C++ classes.
std::string CppPath() {
  const CConstQUIV k;
  Ref<CProvider> provider = CProvider::Create();
  Ref<CMessagetext> message;
  Ref<CSessionKey> key;
  Ref<CHashValue> hash;
  String cipherText;
  String digest;
  EXPECT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
  EXPECT_TRUE(provider->SetProviderName(k.MS_ENHANCED_PROV()));
  EXPECT_TRUE(provider->LoadProvider());
  EXPECT_TRUE(provider->GetMessageTextObject(message));
  EXPECT_TRUE(provider->GetSessionKeyObject(key));
  EXPECT_TRUE(provider->GetHashValueObject(hash));
  EXPECT_TRUE(message->LoadMessageText(u"The typical request, from C.", STRING_VB));
  EXPECT_TRUE(key->SetKeyAlgorithmID(k.CALG_RC2()));
  EXPECT_TRUE(key->SetKeyPhrase(u"correct horse battery staple"));
  EXPECT_TRUE(key->GenerateSessionKey());
  EXPECT_TRUE(key->Encrypt(message));
  EXPECT_TRUE(message->UnloadMessageText(cipherText, STRING_HEX));
  EXPECT_TRUE(hash->SetHashAlgorithmID(k.CALG_SHA1()));
  EXPECT_TRUE(hash->Hash(message));
  EXPECT_TRUE(hash->UnloadHashValue(digest, STRING_HEX));
  provider->TerminateAll();
  return "ciphertext " + cipherText.ToUtf8() + "\nsha1 " + digest.ToUtf8() + "\n";
}

TEST(TypicalRequestCTest, TheCProgramGivesTheSameBytesAsTheCppPath) {
  test::TempKeyStore store;
  test::TempRegistry registry;
  int status = -1;
  const std::string fromC = RunProgram(QUIV_TYPICAL_REQUEST_C, status);
  ASSERT_EQ(status, 0) << fromC;
  const std::string expected = CppPath();
  EXPECT_EQ(fromC, expected + "verified True\n");
  // 28 characters are 56 bytes, 64 with RC2 padding; SHA-1 has 20.
  EXPECT_EQ(expected.size(), std::string("ciphertext \nsha1 \n").size() + 2 * 64 + 2 * 20);
}

}  // namespace
}  // namespace quiv
