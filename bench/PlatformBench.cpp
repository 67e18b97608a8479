// Throughput of the provider against OpenSSL's EVP interface doing the same work in the same
// process: CryptEncrypt/CryptDecrypt (RC4, RC2, DES, 3DES, and AES-128/256 of the AES provider, in
// CBC with PKCS#5 padding) of 64 KiB in one final call and of 64 MiB streamed in 64 KiB sections
// (non-final, then a final one), CryptHashData (MD5, SHA-1, and SHA-256/512 of the AES provider),
// and CryptSignHash/CryptVerifySignature (PKCS#1 v1.5 with SHA-1, 1024- and 2048-bit keys). Our
// side goes only through the C functions of platform/wincrypt.h; the baseline uses the same key
// bytes (imported as PLAINTEXTKEYBLOB, or the RSA key exported as PRIVATEKEYBLOB and read by
// OpenSSL). Before timing, every pair is checked to produce the same bytes, so both sides do the
// same work. Each benchmark runs as Google Benchmark repetitions, interleaved at random; the table
// printed at the end compares the best repetition of each side.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "CapiSession.h"
#include "EvpBaseline.h"
#include "PairTimer.h"
#include "RatioReporter.h"

namespace quiv::bench {
namespace {

constexpr size_t kKiB = 1024;
constexpr size_t kSmall = 64 * kKiB;
constexpr size_t kLarge = 64 * kKiB * kKiB;
constexpr size_t kSection = 64 * kKiB;
constexpr size_t kMaxBlock = 16;  // AES; the other block ciphers have 8
constexpr size_t kSignedMessage = 64;
// Samples (batch pairs) per case: 64 KiB and signature cases time batches of about kBatchSeconds;
// a 64 MiB case times one message per batch, with more samples for the fast ones (RC4, AES,
// hashes).
constexpr int kSmallSamples = 60;
constexpr int kSlowLargeSamples = 3;
constexpr int kFastLargeSamples = 10;

std::vector<uint8_t> RandomBytes(size_t n, uint64_t seed) {
  std::vector<uint8_t> bytes(n);
  std::mt19937_64 rng(seed);
  for (size_t at = 0; at < n; at += sizeof(uint64_t)) {
    const uint64_t word = rng();
    std::memcpy(bytes.data() + at, &word, std::min(sizeof word, n - at));
  }
  return bytes;
}

// The input of every case, and one working buffer both sides encrypt and decrypt in place.
const std::vector<uint8_t>& Plain() {
  static const std::vector<uint8_t> plain = RandomBytes(kLarge, 1);
  return plain;
}
std::vector<uint8_t>& Work() {
  static std::vector<uint8_t> work(kLarge + 2 * kMaxBlock);
  return work;
}

struct CipherCase {
  const char* label;
  ALG_ID algid;
  const char* evpName;
  size_t keyBytes;
  size_t blockBytes;  // 0 for the stream cipher
  bool aes;           // a cipher of the AES provider
  bool block() const { return blockBytes != 0; }
};

// Enhanced-provider key sizes: RC4 and RC2 128 bits (RC2 effective length 128), DES, 3DES; and
// the AES provider's AES-128 and AES-256.
constexpr CipherCase kCiphers[] = {
    {"RC4", CALG_RC4, "RC4", 16, 0, false},
    {"RC2", CALG_RC2, "RC2-CBC", 16, 8, false},
    {"DES", CALG_DES, "DES-CBC", 8, 8, false},
    {"3DES", CALG_3DES, "DES-EDE3-CBC", 24, 8, false},
    {"AES-128", CALG_AES_128, "AES-128-CBC", 16, 16, true},
    {"AES-256", CALG_AES_256, "AES-256-CBC", 32, 16, true},
};

// One cipher with its key on both sides: our key handle and two EVP contexts (one per
// direction) keyed with the same bytes and a zero IV, as our CBC default.
class CipherPair final {
 public:
  CipherPair(const CipherCase& cipher, CapiSession& capi, EvpBaseline& evp)
      : m_case(cipher), m_key(RandomBytes(cipher.keyBytes, cipher.algid)) {
    m_handle = capi.ImportPlaintextKey(cipher.algid, m_key);
    m_encrypt.reset(EVP_CIPHER_CTX_new());
    m_decrypt.reset(EVP_CIPHER_CTX_new());
    Prepare(evp, m_encrypt.get(), 1);
    Prepare(evp, m_decrypt.get(), 0);
  }

  const CipherCase& Case() const { return m_case; }

  // Encrypts or decrypts n bytes at `data` in place, as one final call or in non-final
  // sections of `section` bytes with the remainder final. Returns the output length.
  size_t Ours(bool encrypt, uint8_t* data, size_t n, size_t section, size_t capacity) const {
    size_t at = 0;
    while (n - at > section) {
      DWORD len = static_cast<DWORD>(section);
      CapiSession::Check(encrypt ? CryptEncrypt(m_handle, 0, FALSE, 0, data + at, &len, len)
                                 : CryptDecrypt(m_handle, 0, FALSE, 0, data + at, &len),
                         encrypt ? "CryptEncrypt" : "CryptDecrypt");
      at += section;
    }
    DWORD len = static_cast<DWORD>(n - at);
    CapiSession::Check(encrypt ? CryptEncrypt(m_handle, 0, TRUE, 0, data + at, &len,
                                              static_cast<DWORD>(capacity - at))
                               : CryptDecrypt(m_handle, 0, TRUE, 0, data + at, &len),
                       encrypt ? "CryptEncrypt(final)" : "CryptDecrypt(final)");
    return at + len;
  }

  // The same with EVP. Decryption turns padding off for the sections before the last, so that
  // every section is processed exactly in place, and EVP checks and strips the padding at the end.
  size_t Evp(bool encrypt, uint8_t* data, size_t n, size_t section) const {
    EVP_CIPHER_CTX* ctx = encrypt ? m_encrypt.get() : m_decrypt.get();
    const uint8_t iv[kMaxBlock] = {};
    EvpBaseline::Check(
        EVP_CipherInit_ex2(ctx, nullptr, m_key.data(), m_case.block() ? iv : nullptr, -1, nullptr),
        "EVP_CipherInit_ex2");
    const bool holdPadding = m_case.block() && !encrypt;
    if (holdPadding) EVP_CIPHER_CTX_set_padding(ctx, 0);
    size_t at = 0;
    int out = 0;
    while (n - at > section) {
      EvpBaseline::Check(
          EVP_CipherUpdate(ctx, data + at, &out, data + at, static_cast<int>(section)),
          "EVP_CipherUpdate");
      at += section;
    }
    if (holdPadding) EVP_CIPHER_CTX_set_padding(ctx, 1);
    EvpBaseline::Check(EVP_CipherUpdate(ctx, data + at, &out, data + at, static_cast<int>(n - at)),
                       "EVP_CipherUpdate");
    at += static_cast<size_t>(out);
    EvpBaseline::Check(EVP_CipherFinal_ex(ctx, data + at, &out), "EVP_CipherFinal_ex");
    return at + static_cast<size_t>(out);
  }

  // The ciphertext of the first n plain bytes (made once, by EVP; the checks below show that
  // ours is the same).
  const std::vector<uint8_t>& Ciphertext(size_t n) {
    std::vector<uint8_t>& cipher = m_ciphertexts[n];
    if (cipher.empty()) {
      cipher.assign(Plain().begin(), Plain().begin() + static_cast<std::ptrdiff_t>(n));
      cipher.resize(n + kMaxBlock);
      cipher.resize(Evp(true, cipher.data(), n, n));
    }
    return cipher;
  }

  // Both sides must agree on a message of n bytes, whole and in sections; throws if not.
  void CheckAgreement(size_t n, size_t section) {
    const std::vector<uint8_t>& expected = Ciphertext(n);
    std::vector<uint8_t> buffer(Plain().begin(), Plain().begin() + static_cast<std::ptrdiff_t>(n));
    buffer.resize(n + kMaxBlock);
    const size_t length = Ours(true, buffer.data(), n, section, buffer.size());
    if (length != expected.size() ||
        !std::equal(expected.begin(), expected.end(), buffer.begin())) {
      throw std::runtime_error(std::string(m_case.label) + ": ciphertexts differ");
    }
    const size_t plainLength = Ours(false, buffer.data(), length, section, buffer.size());
    if (plainLength != n ||
        !std::equal(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(n),
                    Plain().begin())) {
      throw std::runtime_error(std::string(m_case.label) + ": decryption differs");
    }
    std::vector<uint8_t> evpPlain = expected;
    if (Evp(false, evpPlain.data(), evpPlain.size(), section) != n) {
      throw std::runtime_error(std::string(m_case.label) + ": EVP decryption length differs");
    }
  }

 private:
  void Prepare(EvpBaseline& evp, EVP_CIPHER_CTX* ctx, int enc) const {
    if (ctx == nullptr) throw std::runtime_error("EVP_CIPHER_CTX_new failed");
    EvpBaseline::Check(
        EVP_CipherInit_ex2(ctx, evp.Cipher(m_case.evpName), nullptr, nullptr, enc, nullptr),
        "EVP_CipherInit_ex2");
    EvpBaseline::Check(EVP_CIPHER_CTX_set_key_length(ctx, static_cast<int>(m_key.size())),
                       "EVP_CIPHER_CTX_set_key_length");
    if (m_case.algid == CALG_RC2) {
      EvpBaseline::Check(EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_SET_RC2_KEY_BITS,
                                             static_cast<int>(m_key.size() * 8), nullptr),
                         "EVP_CTRL_SET_RC2_KEY_BITS");
    }
  }

  CipherCase m_case;
  std::vector<uint8_t> m_key;
  HCRYPTKEY m_handle = 0;
  EvpCipherCtx m_encrypt;
  EvpCipherCtx m_decrypt;
  std::map<size_t, std::vector<uint8_t>> m_ciphertexts;
};

// One RSA signature key pair on both sides, in a session of its own (a session has one
// AT_SIGNATURE key, which is what CryptSignHash uses).
class SignaturePair final {
 public:
  explicit SignaturePair(uint32_t bits) : m_message(RandomBytes(kSignedMessage, bits)) {
    m_handle = m_capi.GenerateSignatureKey(bits);
    m_pkey = EvpBaseline::PrivateKeyFromBlob(m_capi.ExportPrivateKeyBlob(m_handle));
    m_ctx.reset(EVP_MD_CTX_new());
    m_ourSignature = OursSign();
    m_evpSignature = EvpSign();
    // CryptoAPI writes the signature little-endian; PKCS#1 v1.5 is deterministic.
    std::vector<uint8_t> reversed(m_ourSignature.rbegin(), m_ourSignature.rend());
    if (reversed != m_evpSignature) throw std::runtime_error("RSA signatures differ");
    if (!OursVerify() || !EvpVerify()) throw std::runtime_error("RSA signature does not verify");
  }

  std::vector<uint8_t> OursSign() const {
    const HCRYPTHASH hash = OurHash();
    std::vector<uint8_t> signature(1024);
    DWORD length = static_cast<DWORD>(signature.size());
    const BOOL ok = CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &length);
    CryptDestroyHash(hash);
    CapiSession::Check(ok, "CryptSignHashA");
    signature.resize(length);
    return signature;
  }

  bool OursVerify() const {
    const HCRYPTHASH hash = OurHash();
    const BOOL ok =
        CryptVerifySignatureA(hash, m_ourSignature.data(),
                              static_cast<DWORD>(m_ourSignature.size()), m_handle, nullptr, 0);
    CryptDestroyHash(hash);
    return ok != FALSE;
  }

  std::vector<uint8_t> EvpSign() const {
    EVP_MD_CTX_reset(m_ctx.get());
    EvpBaseline::Check(EVP_DigestSignInit_ex(m_ctx.get(), nullptr, "SHA1", nullptr, nullptr,
                                             m_pkey.get(), nullptr),
                       "EVP_DigestSignInit_ex");
    std::vector<uint8_t> signature(1024);
    size_t length = signature.size();
    EvpBaseline::Check(
        EVP_DigestSign(m_ctx.get(), signature.data(), &length, m_message.data(), m_message.size()),
        "EVP_DigestSign");
    signature.resize(length);
    return signature;
  }

  bool EvpVerify() const {
    EVP_MD_CTX_reset(m_ctx.get());
    EvpBaseline::Check(EVP_DigestVerifyInit_ex(m_ctx.get(), nullptr, "SHA1", nullptr, nullptr,
                                               m_pkey.get(), nullptr),
                       "EVP_DigestVerifyInit_ex");
    return EVP_DigestVerify(m_ctx.get(), m_evpSignature.data(), m_evpSignature.size(),
                            m_message.data(), m_message.size()) == 1;
  }

 private:
  HCRYPTHASH OurHash() const {
    HCRYPTHASH hash = 0;
    CapiSession::Check(CryptCreateHash(m_capi.Provider(), CALG_SHA, 0, 0, &hash),
                       "CryptCreateHash");
    if (!CryptHashData(hash, m_message.data(), static_cast<DWORD>(m_message.size()), 0)) {
      CryptDestroyHash(hash);
      CapiSession::Check(FALSE, "CryptHashData");
    }
    return hash;
  }

  CapiSession m_capi;
  std::vector<uint8_t> m_message;
  HCRYPTKEY m_handle = 0;
  EvpKey m_pkey;
  EvpMdCtx m_ctx;
  std::vector<uint8_t> m_ourSignature;
  std::vector<uint8_t> m_evpSignature;
};

// Everything the benchmarks share, made once before the first run.
struct World {
  CapiSession capi;
  CapiSession aes{MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES};
  EvpBaseline evp;
  std::vector<std::unique_ptr<CipherPair>> ciphers;
  std::vector<std::unique_ptr<SignaturePair>> signatures;
};

// The digest of n plain bytes: create, hash, read the value, destroy, as a caller would.
std::vector<uint8_t> OurDigest(HCRYPTPROV prov, ALG_ID algid, size_t n) {
  HCRYPTHASH hash = 0;
  CapiSession::Check(CryptCreateHash(prov, algid, 0, 0, &hash), "CryptCreateHash");
  std::vector<uint8_t> value(EVP_MAX_MD_SIZE);
  DWORD length = static_cast<DWORD>(value.size());
  const BOOL ok = CryptHashData(hash, Plain().data(), static_cast<DWORD>(n), 0) &&
                  CryptGetHashParam(hash, HP_HASHVAL, value.data(), &length, 0);
  CryptDestroyHash(hash);
  CapiSession::Check(ok, "CryptHashData/CryptGetHashParam");
  value.resize(length);
  return value;
}

std::vector<uint8_t> EvpDigest(EVP_MD_CTX* ctx, const EVP_MD* md, size_t n) {
  std::vector<uint8_t> value(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  EvpBaseline::Check(EVP_DigestInit_ex2(ctx, md, nullptr), "EVP_DigestInit_ex2");
  EvpBaseline::Check(EVP_DigestUpdate(ctx, Plain().data(), n), "EVP_DigestUpdate");
  EvpBaseline::Check(EVP_DigestFinal_ex(ctx, value.data(), &length), "EVP_DigestFinal_ex");
  value.resize(length);
  return value;
}

std::string SizeLabel(size_t n) {
  return n >= kKiB * kKiB ? std::to_string(n / (kKiB * kKiB)) + " MiB"
                          : std::to_string(n / kKiB) + " KiB";
}

void RegisterCipher(RatioReporter& reporter, CipherPair& pair, bool encrypt, size_t n) {
  const bool large = n == kLarge;
  const size_t section = large ? kSection : n;
  const std::string name = std::string(pair.Case().label) + (encrypt ? " encrypt " : " decrypt ") +
                           SizeLabel(n) + (large ? " streamed" : "");
  // AES runs on the processor's AES instructions: as fast as RC4, so it gets as many samples.
  const bool slow = pair.Case().block() && !pair.Case().aes;
  const int samples = !large ? kSmallSamples : slow ? kSlowLargeSamples : kFastLargeSamples;
  // A decryption needs the ciphertext back in the buffer first; encryption works over whatever
  // the buffer holds.
  std::function<void()> prepare;
  if (!encrypt) {
    prepare = [&pair, n] {
      const std::vector<uint8_t>& cipher = pair.Ciphertext(n);
      std::memcpy(Work().data(), cipher.data(), cipher.size());
    };
  }
  // A final block cipher call pads to the next whole block.
  const size_t block = pair.Case().blockBytes;
  const size_t length = encrypt || block == 0 ? n : (n / block + 1) * block;
  RegisterPair(reporter, {name, true, static_cast<double>(n), 0.95}, samples,
               {[&pair, encrypt, length, section] {
                  benchmark::DoNotOptimize(
                      pair.Ours(encrypt, Work().data(), length, section, Work().size()));
                },
                prepare},
               {[&pair, encrypt, length, section] {
                  benchmark::DoNotOptimize(pair.Evp(encrypt, Work().data(), length, section));
                },
                prepare});
}

void RegisterHash(RatioReporter& reporter, World& world, const char* label, ALG_ID algid,
                  const char* evpName, size_t n) {
  const EVP_MD* md = world.evp.Digest(evpName);
  // SHA-2 exists only in the AES provider.
  const bool sha2 = algid == CALG_SHA_256 || algid == CALG_SHA_384 || algid == CALG_SHA_512;
  const HCRYPTPROV prov = sha2 ? world.aes.Provider() : world.capi.Provider();
  auto ctx = std::make_shared<EvpMdCtx>(EVP_MD_CTX_new());
  if (OurDigest(prov, algid, n) != EvpDigest(ctx->get(), md, n)) {
    throw std::runtime_error(std::string(label) + ": digests differ");
  }
  const std::string name = std::string(label) + " hash " + SizeLabel(n);
  RegisterPair(reporter, {name, true, static_cast<double>(n), 0.95},
               n == kLarge ? kFastLargeSamples : kSmallSamples,
               {[prov, algid, n] { benchmark::DoNotOptimize(OurDigest(prov, algid, n)); }, {}},
               {[ctx, md, n] { benchmark::DoNotOptimize(EvpDigest(ctx->get(), md, n)); }, {}});
}

void RegisterSignature(RatioReporter& reporter, SignaturePair& pair, uint32_t bits) {
  const std::string size = "RSA-" + std::to_string(bits);
  RegisterPair(reporter, {size + " sign", false, 1.0, 0.9}, kSmallSamples,
               {[&pair] { benchmark::DoNotOptimize(pair.OursSign()); }, {}},
               {[&pair] { benchmark::DoNotOptimize(pair.EvpSign()); }, {}});
  RegisterPair(reporter, {size + " verify", false, 1.0, 0.9}, kSmallSamples,
               {[&pair] {
                  if (!pair.OursVerify()) throw std::runtime_error("not verified");
                },
                {}},
               {[&pair] {
                  if (!pair.EvpVerify()) throw std::runtime_error("not verified");
                },
                {}});
}

void RegisterAll(RatioReporter& reporter, World& world) {
  for (const CipherCase& cipher : kCiphers) {
    world.ciphers.push_back(
        std::make_unique<CipherPair>(cipher, cipher.aes ? world.aes : world.capi, world.evp));
    CipherPair& pair = *world.ciphers.back();
    pair.CheckAgreement(kSmall, kSmall);
    pair.CheckAgreement(4 * kSection + 24, kSection);  // sections and a short last one
    for (const size_t n : {kSmall, kLarge}) {
      RegisterCipher(reporter, pair, true, n);
      RegisterCipher(reporter, pair, false, n);
    }
  }
  for (const size_t n : {kSmall, kLarge}) {
    RegisterHash(reporter, world, "MD5", CALG_MD5, "MD5", n);
    RegisterHash(reporter, world, "SHA-1", CALG_SHA, "SHA1", n);
    RegisterHash(reporter, world, "SHA-256", CALG_SHA_256, "SHA256", n);
    RegisterHash(reporter, world, "SHA-512", CALG_SHA_512, "SHA512", n);
  }
  for (const uint32_t bits : {1024u, 2048u}) {
    world.signatures.push_back(std::make_unique<SignaturePair>(bits));
    RegisterSignature(reporter, *world.signatures.back(), bits);
  }
}

}  // namespace
}  // namespace quiv::bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  quiv::bench::RatioReporter reporter;
  try {
    quiv::bench::World world;
    quiv::bench::RegisterAll(reporter, world);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const int below = reporter.PrintTable(stdout);
    std::printf("\nratio = our rate / EVP rate; %d case(s) below the aim\n", below);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quiv_bench_platform: %s\n", e.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}
