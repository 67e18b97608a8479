// The cost of a server-page request against the same cryptographic work with every object and
// key already in memory, in the same process.
// - page: a new CProvider on the Enhanced provider opens the site's container (LoadProvider with
//   its name), derives a 3DES key from a pass phrase, encrypts 1 KiB of message text, signs the
//   ciphertext with the container's 1024-bit signature pair (SHA-1, hex block) and calls
//   TerminateAll: what a page does on every request;
// - floor: one provider session kept open on the same container, its objects and its loaded
//   signature pair reused; each run derives the key again, encrypts the same 1 KiB and signs.
// The ratio (floor time / page time) is what a page pays for starting from nothing.
// Both sides are checked to give the same ciphertext and signature before anything is timed.
// The containers live in a private temporary store (QUIV_KEY_STORE), removed at the end.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "ObjectSession.h"
#include "PairTimer.h"
#include "RatioReporter.h"
#include "platform/wincrypt.h"
// After the platform header: the catalogue withdraws wincrypt's macros of the same names.
#include "automation/ByteArray.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::bench {
namespace {

constexpr size_t kMessageBytes = 1024;
constexpr int kSamples = 60;
const char16_t* const kSite = u"site";
const char16_t* const kPhrase = u"the site's pass phrase";

// A private store for the run: QUIV_KEY_STORE points into a fresh temporary folder.
class PrivateStore final {
 public:
  PrivateStore() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quiv-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    m_folder = pattern;
    ::setenv("QUIV_KEY_STORE", m_folder.c_str(), 1);
  }
  ~PrivateStore() {
    ::unsetenv("QUIV_KEY_STORE");
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  PrivateStore(const PrivateStore&) = delete;
  PrivateStore& operator=(const PrivateStore&) = delete;

 private:
  std::filesystem::path m_folder;
};

struct PageResult {
  ByteArray ciphertext;
  String signature;
};

Ref<CProvider> EnhancedProvider() {
  const CConstQUIV c;
  Ref<CProvider> provider = CProvider::Create();
  Require(provider->SetProviderTypeID(c.PROV_RSA_FULL()), "type", provider->m_oLastError);
  Require(provider->SetProviderName(c.MS_ENHANCED_PROV()), "name", provider->m_oLastError);
  return provider;
}

// Creates the site's container with a 1024-bit signature pair in it.
void MakeSite() {
  Ref<CProvider> provider = EnhancedProvider();
  Require(provider->LoadProvider(), "LoadProvider", provider->m_oLastError);
  Ref<CContainer> container;
  Require(provider->GetContainerObject(container), "container", provider->m_oLastError);
  Require(container->NewContainer(kSite, SINGLE_USER), "NewContainer", container->m_oLastError);
  Ref<CRSAKeyPair> pair;
  Require(provider->GetSignatureKeyPairObject(pair), "pair", provider->m_oLastError);
  Require(pair->SetModulus(1024), "SetModulus", pair->m_oLastError);
  Require(pair->GenerateKeyPair(), "GenerateKeyPair", pair->m_oLastError);
  provider->TerminateAll();
}

// The work of a page on objects of an open session: derive, encrypt, sign.
PageResult Work(const Ref<CSessionKey>& key, const Ref<CMessagetext>& message,
                const Ref<CRSAKeyPair>& signature, const ByteArray& text) {
  const CConstQUIV c;
  Require(key->SetKeyAlgorithmID(c.CALG_3DES()), "SetKeyAlgorithmID", key->m_oLastError);
  Require(key->SetKeyPhrase(kPhrase), "SetKeyPhrase", key->m_oLastError);
  Require(key->GenerateSessionKey(), "GenerateSessionKey", key->m_oLastError);
  Require(message->SetMessageText(text), "SetMessageText", message->m_oLastError);
  Require(key->Encrypt(message), "Encrypt", key->m_oLastError);
  PageResult result;
  Require(message->GetMessageText(result.ciphertext), "GetMessageText", message->m_oLastError);
  Require(signature->Sign(message, result.signature, STRING_HEX, c.CALG_SHA()), "Sign",
          signature->m_oLastError);
  return result;
}

// One request: everything from a new provider to TerminateAll.
PageResult Page(const ByteArray& text) {
  Ref<CProvider> provider = EnhancedProvider();
  Require(provider->LoadProvider(kSite), "LoadProvider", provider->m_oLastError);
  Ref<CSessionKey> key;
  Ref<CMessagetext> message;
  Ref<CRSAKeyPair> signature;
  Require(provider->GetSessionKeyObject(key) && provider->GetMessageTextObject(message) &&
              provider->GetSignatureKeyPairObject(signature),
          "objects", provider->m_oLastError);
  PageResult result = Work(key, message, signature, text);
  Require(provider->TerminateAll(), "TerminateAll", provider->m_oLastError);
  return result;
}

// The floor: a session that stays open on the site's container.
class OpenSite final {
 public:
  OpenSite() : m_provider(EnhancedProvider()) {
    Require(m_provider->LoadProvider(kSite), "LoadProvider", m_provider->m_oLastError);
    Require(m_provider->GetSessionKeyObject(m_key) && m_provider->GetMessageTextObject(m_message) &&
                m_provider->GetSignatureKeyPairObject(m_signature),
            "objects", m_provider->m_oLastError);
  }
  ~OpenSite() { m_provider->TerminateAll(); }
  OpenSite(const OpenSite&) = delete;
  OpenSite& operator=(const OpenSite&) = delete;

  PageResult Run(const ByteArray& text) { return Work(m_key, m_message, m_signature, text); }

 private:
  Ref<CProvider> m_provider;
  Ref<CSessionKey> m_key;
  Ref<CMessagetext> m_message;
  Ref<CRSAKeyPair> m_signature;
};

ByteArray RandomText() {
  std::vector<uint8_t> bytes(kMessageBytes);
  std::mt19937_64 rng(17);
  for (auto& b : bytes) b = static_cast<uint8_t>(rng());
  return ByteArray(bytes);
}

void CheckSameResult(const PageResult& page, const PageResult& floor) {
  if (page.ciphertext.ToVector() != floor.ciphertext.ToVector()) {
    throw std::runtime_error("page and floor ciphertexts differ");
  }
  if (page.signature.ToUtf8() != floor.signature.ToUtf8()) {
    throw std::runtime_error("page and floor signatures differ");
  }
}

}  // namespace
}  // namespace quiv::bench

int main(int argc, char** argv) {
  using namespace quiv::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter("in memory");
  try {
    const PrivateStore store;
    MakeSite();
    const quiv::ByteArray text = RandomText();
    auto site = std::make_shared<OpenSite>();
    CheckSameResult(Page(text), site->Run(text));
    RegisterPair(reporter, {"Page request (1 KiB, RSA-1024)", false, 1, 0.7}, kSamples,
                 {[text] { benchmark::DoNotOptimize(Page(text)); }, {}},
                 {[site, text] { benchmark::DoNotOptimize(site->Run(text)); }, {}});
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const int below = reporter.PrintTable(stdout);
    std::printf("\nratio = page rate / in-memory rate; %d case(s) below the aim\n", below);
    // The registered cases hold the open session; it ends before its store is removed.
    benchmark::ClearRegisteredBenchmarks();
    site.reset();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quiv_bench_page: %s\n", e.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}
