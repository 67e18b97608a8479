// The automation objects against OpenSSL's EVP doing the same work in the same process:
// - CMessagetext + CSessionKey encrypting and decrypting 64 MiB with RC4 and with 3DES (CBC,
//   PKCS#5 padding, the provider's zero IV) in one call, against EVP over the same bytes with
//   the same key (taken from the provider as a PLAINTEXTKEYBLOB);
// - CRSAKeyPair Sign and VerifySignature (SHA-1, hex signature block) of a 64-byte message with
//   1024- and 2048-bit keys, against EVP_DigestSign/Verify with the same key (read from the
//   pair's PRIVATEKEYBLOB by OpenSSL's MSBLOB reader);
// - key-pair generation time per modulus (no baseline: the time of one GenerateKeyPair).
// Each pair of sides is checked to give the same bytes before anything is timed.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "EvpBaseline.h"
#include "ObjectSession.h"
#include "PairTimer.h"
#include "RatioReporter.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "platform/wincrypt.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::bench {
namespace {

constexpr size_t kLarge = size_t{64} << 20;
constexpr size_t kSignedMessage = 64;
constexpr int kLargeSamples = 4;
constexpr int kSignSamples = 40;

std::vector<uint8_t> RandomBytes(size_t n, uint64_t seed) {
  std::vector<uint8_t> bytes(n);
  std::mt19937_64 rng(seed);
  for (auto& b : bytes) b = static_cast<uint8_t>(rng());
  return bytes;
}

using Session = ObjectSession;

// One cipher case: our message object and key against EVP with the same key bytes.
class CipherCase {
 public:
  CipherCase(Session& session, EvpBaseline& evp, int32_t algId, const char* evpName)
      : m_session(session), m_plain(RandomBytes(kLarge, 11)) {
    Require(session.key->SetKeyAlgorithmID(algId), "SetKeyAlgorithmID", session.key->m_oLastError);
    Require(session.key->GenerateSessionKey(), "GenerateSessionKey", session.key->m_oLastError);
    m_key = session.KeyBytes();
    m_cipher = evp.Cipher(evpName);
    m_ctx.reset(EVP_CIPHER_CTX_new());
    m_work.resize(kLarge + 16);
    m_ours = OursEncrypt();
    const size_t n = EvpRun(true, m_plain.data(), m_plain.size());
    if (m_ours != std::vector<uint8_t>(m_work.begin(), m_work.begin() + n)) {
      throw std::runtime_error(std::string(evpName) + ": ciphertexts differ");
    }
  }

  std::vector<uint8_t> OursEncrypt() const {
    Require(m_session.message->SetMessageText(ByteArray(m_plain)), "SetMessageText", {});
    Require(m_session.key->Encrypt(m_session.message), "Encrypt", m_session.key->m_oLastError);
    ByteArray out;
    Require(m_session.message->GetMessageText(out), "GetMessageText", {});
    return out.ToVector();
  }

  Side Ours(bool encrypt) {
    const ByteArray input(encrypt ? m_plain : m_ours);
    return {[this, encrypt] {
              CSessionKey& key = *m_session.key;
              const bool ok =
                  encrypt ? key.Encrypt(m_session.message) : key.Decrypt(m_session.message);
              Require(ok, "Encrypt/Decrypt", key.m_oLastError);
            },
            [this, input] { m_session.message->SetMessageText(input); }};
  }

  Side Evp(bool encrypt) {
    return {[this, encrypt] {
              const std::vector<uint8_t>& in = encrypt ? m_plain : m_ours;
              benchmark::DoNotOptimize(EvpRun(encrypt, in.data(), in.size()));
            },
            {}};
  }

 private:
  size_t EvpRun(bool encrypt, const uint8_t* in, size_t n) {
    return EvpBaseline::CipherOnce(m_ctx.get(), m_cipher, m_key, encrypt, in, n, m_work.data());
  }

  Session& m_session;
  std::vector<uint8_t> m_plain;
  std::vector<uint8_t> m_ours;
  std::vector<uint8_t> m_key;
  std::vector<uint8_t> m_work;
  const EVP_CIPHER* m_cipher = nullptr;
  EvpCipherCtx m_ctx;
};

// One signature case: a signature pair of `bits` against EVP with the same private key.
class SignatureCase {
 public:
  SignatureCase(Session& session, int32_t bits) : m_session(session) {
    const CConstQUIV c;
    CRSAKeyPair& pair = *session.signature;
    Require(pair.SetModulus(bits), "SetModulus", pair.m_oLastError);
    Require(pair.GenerateKeyPair(), "GenerateKeyPair", pair.m_oLastError);
    String blobHex;
    Require(pair.UnloadPrivateKey(blobHex, STRING_HEX), "UnloadPrivateKey", pair.m_oLastError);
    Require(m_message->SetMessageText(ByteArray(RandomBytes(kSignedMessage, 5))), "message", {});
    ByteArray blob;
    Ref<CMessagetext> scratch = MakeRef<CMessagetext>();
    Require(scratch->LoadMessageText(blobHex, STRING_HEX), "blob", scratch->m_oLastError);
    Require(scratch->GetMessageText(blob), "blob", {});
    m_pkey = EvpBaseline::PrivateKeyFromBlob(blob.span());
    m_ctx.reset(EVP_MD_CTX_new());
    m_messageBytes = RandomBytes(kSignedMessage, 5);
    Require(pair.Sign(m_message, m_signature, STRING_HEX, c.CALG_SHA()), "Sign", pair.m_oLastError);
    Ref<CMessagetext> sig = MakeRef<CMessagetext>();
    ByteArray ours;
    Require(sig->LoadMessageText(m_signature, STRING_HEX) && sig->GetMessageText(ours), "sig", {});
    // CryptoAPI writes the signature little-endian; PKCS#1 v1.5 is deterministic.
    const std::vector<uint8_t> reversed(ours.ToVector().rbegin(), ours.ToVector().rend());
    m_evpSignature = EvpSign();
    if (reversed != m_evpSignature) throw std::runtime_error("RSA signatures differ");
  }

  Side OursSign() {
    return {[this] {
              const CConstQUIV c;
              String block;
              Require(m_session.signature->Sign(m_message, block, STRING_HEX, c.CALG_SHA()), "Sign",
                      m_session.signature->m_oLastError);
            },
            {}};
  }
  Side OursVerify() {
    return {[this] {
              const CConstQUIV c;
              bool valid = false;
              Require(m_session.signature->VerifySignature(m_message, m_signature, STRING_HEX,
                                                           valid, c.CALG_SHA()) &&
                          valid,
                      "VerifySignature", m_session.signature->m_oLastError);
            },
            {}};
  }
  Side EvpSignSide() {
    return {[this] { benchmark::DoNotOptimize(EvpSign()); }, {}};
  }
  Side EvpVerifySide() {
    return {[this] {
              EVP_MD_CTX_reset(m_ctx.get());
              EvpBaseline::Check(EVP_DigestVerifyInit_ex(m_ctx.get(), nullptr, "SHA1", nullptr,
                                                         nullptr, m_pkey.get(), nullptr),
                                 "EVP_DigestVerifyInit_ex");
              if (EVP_DigestVerify(m_ctx.get(), m_evpSignature.data(), m_evpSignature.size(),
                                   m_messageBytes.data(), m_messageBytes.size()) != 1) {
                throw std::runtime_error("EVP verify failed");
              }
            },
            {}};
  }

 private:
  std::vector<uint8_t> EvpSign() {
    EVP_MD_CTX_reset(m_ctx.get());
    EvpBaseline::Check(EVP_DigestSignInit_ex(m_ctx.get(), nullptr, "SHA1", nullptr, nullptr,
                                             m_pkey.get(), nullptr),
                       "EVP_DigestSignInit_ex");
    std::vector<uint8_t> signature(1024);
    size_t length = signature.size();
    EvpBaseline::Check(EVP_DigestSign(m_ctx.get(), signature.data(), &length, m_messageBytes.data(),
                                      m_messageBytes.size()),
                       "EVP_DigestSign");
    signature.resize(length);
    return signature;
  }

  Session& m_session;
  Ref<CMessagetext> m_message = MakeRef<CMessagetext>();
  std::vector<uint8_t> m_messageBytes;
  String m_signature;
  std::vector<uint8_t> m_evpSignature;
  EvpKey m_pkey;
  EvpMdCtx m_ctx;
};

void PrintKeyGeneration(Session& session) {
  std::printf("\nKey-pair generation (CRSAKeyPair::GenerateKeyPair, mean of runs):\n");
  for (const int32_t bits : {512, 1024, 2048}) {
    const int runs = bits == 2048 ? 3 : 8;
    double total = 0;
    for (int i = 0; i < runs; ++i) {
      Require(session.signature->SetModulus(bits), "SetModulus", session.signature->m_oLastError);
      const auto start = std::chrono::steady_clock::now();
      Require(session.signature->GenerateKeyPair(), "GenerateKeyPair",
              session.signature->m_oLastError);
      total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    std::printf("| RSA-%d | %.1f ms |\n", bits, total / runs * 1e3);
  }
}

}  // namespace
}  // namespace quiv::bench

int main(int argc, char** argv) {
  using namespace quiv::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  try {
    const quiv::CConstQUIV c;
    EvpBaseline evp;
    Session rc4Session, desSession, signSession1024, signSession2048, keygenSession;
    CipherCase rc4(rc4Session, evp, c.CALG_RC4(), "RC4");
    CipherCase des3(desSession, evp, c.CALG_3DES(), "DES-EDE3-CBC");
    SignatureCase rsa1024(signSession1024, 1024);
    SignatureCase rsa2048(signSession2048, 2048);
    const double n = static_cast<double>(kLarge);
    RegisterPair(reporter, {"RC4 encrypt 64 MiB", true, n, 0.8}, kLargeSamples, rc4.Ours(true),
                 rc4.Evp(true));
    RegisterPair(reporter, {"RC4 decrypt 64 MiB", true, n, 0.8}, kLargeSamples, rc4.Ours(false),
                 rc4.Evp(false));
    RegisterPair(reporter, {"3DES encrypt 64 MiB", true, n, 0.9}, kLargeSamples, des3.Ours(true),
                 des3.Evp(true));
    RegisterPair(reporter, {"3DES decrypt 64 MiB", true, n, 0.9}, kLargeSamples, des3.Ours(false),
                 des3.Evp(false));
    RegisterPair(reporter, {"RSA-1024 Sign", false, 1, 0.9}, kSignSamples, rsa1024.OursSign(),
                 rsa1024.EvpSignSide());
    RegisterPair(reporter, {"RSA-1024 VerifySignature", false, 1, 0.9}, kSignSamples,
                 rsa1024.OursVerify(), rsa1024.EvpVerifySide());
    RegisterPair(reporter, {"RSA-2048 Sign", false, 1, 0.9}, kSignSamples, rsa2048.OursSign(),
                 rsa2048.EvpSignSide());
    RegisterPair(reporter, {"RSA-2048 VerifySignature", false, 1, 0.9}, kSignSamples,
                 rsa2048.OursVerify(), rsa2048.EvpVerifySide());
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const int below = reporter.PrintTable(stdout);
    std::printf("\nratio = our rate / EVP rate; %d case(s) below the aim\n", below);
    PrintKeyGeneration(keygenSession);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quiv_bench_objects: %s\n", e.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}
