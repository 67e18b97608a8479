#include "platform/RsaKey.h"

#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/CspError.h"
#include "platform/HashObject.h"
#include "platform/KeyBlob.h"
#include "platform/LittleEndian.h"
#include "platform/Ossl.h"
#include "platform/ProviderInfo.h"
#include "platform/SizedOutput.h"
#include "platform/SymmetricKey.h"

namespace quiv::platform {
namespace {

constexpr uint32_t kMagicPublic = 0x31415352;   // "RSA1"
constexpr uint32_t kMagicPrivate = 0x32415352;  // "RSA2"
constexpr size_t kRsaPubKeySize = 12;           // magic, bitlen, pubexp
constexpr DWORD kLargestModulus = 16384;
// Stored-form layout: "QRK1", a DWORD of flags, then the private blob.
constexpr uint32_t kStoredMagic = 0x314B5251;
constexpr DWORD kStoredExportable = 1;

[[noreturn]] void Fail(long code) {
  throw CspError(static_cast<uint32_t>(code));
}

size_t ModulusWidth(DWORD bitLength) {
  return (static_cast<size_t>(bitLength) + 7) / 8;
}
// The prime-sized fields: half the modulus, rounded up (bitlen/16 for the usual lengths).
size_t HalfWidth(DWORD bitLength) {
  return (static_cast<size_t>(bitLength) + 15) / 16;
}

ALG_ID RsaAlgid(ALG_ID algid) {
  if (algid == AT_KEYEXCHANGE || algid == CALG_RSA_KEYX) return CALG_RSA_KEYX;
  if (algid == AT_SIGNATURE || algid == CALG_RSA_SIGN) return CALG_RSA_SIGN;
  Fail(NTE_BAD_ALGID);
}

// DigestInfo prefixes of PKCS#1 v1.5 signatures (RFC 8017 section 9.2, note 1).
std::span<const uint8_t> DigestInfoPrefix(ALG_ID hashAlgid) {
  static constexpr std::array<uint8_t, 18> kMd2 = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08,
                                                   0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d,
                                                   0x02, 0x02, 0x05, 0x00, 0x04, 0x10};
  static constexpr std::array<uint8_t, 18> kMd4 = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08,
                                                   0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d,
                                                   0x02, 0x04, 0x05, 0x00, 0x04, 0x10};
  static constexpr std::array<uint8_t, 18> kMd5 = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08,
                                                   0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d,
                                                   0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
  static constexpr std::array<uint8_t, 15> kSha1 = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e,
                                                    0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};
  // SHA-2: the OIDs 2.16.840.1.101.3.4.2.1 / .2 / .3 (RFC 8017 section 9.2, note 1).
  static constexpr std::array<uint8_t, 19> kSha256 = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60,
                                                      0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                                      0x01, 0x05, 0x00, 0x04, 0x20};
  static constexpr std::array<uint8_t, 19> kSha384 = {0x30, 0x41, 0x30, 0x0d, 0x06, 0x09, 0x60,
                                                      0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                                      0x02, 0x05, 0x00, 0x04, 0x30};
  static constexpr std::array<uint8_t, 19> kSha512 = {0x30, 0x51, 0x30, 0x0d, 0x06, 0x09, 0x60,
                                                      0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                                      0x03, 0x05, 0x00, 0x04, 0x40};
  switch (hashAlgid) {
    case CALG_MD2:
      return kMd2;
    case CALG_MD4:
      return kMd4;
    case CALG_MD5:
      return kMd5;
    case CALG_SHA1:
      return kSha1;
    case CALG_SHA_256:
      return kSha256;
    case CALG_SHA_384:
      return kSha384;
    case CALG_SHA_512:
      return kSha512;
    case CALG_SSL3_SHAMD5:
      return {};  // the 36-byte MD5||SHA-1 value is signed bare
    default:
      Fail(NTE_BAD_ALGID);  // MAC and HMAC values cannot be signed (unconfirmed code)
  }
}

SecureBytes Concat(std::span<const uint8_t> a, std::span<const uint8_t> b) {
  SecureBytes out(a.begin(), a.end());
  out.insert(out.end(), b.begin(), b.end());
  return out;
}

// A CryptoAPI number of `width` little-endian bytes as the big-endian input OpenSSL expects
// for a modulus of `osslSize` bytes. Surplus high bytes must be zero (they are when the blob
// modulus has a zero top byte).
bool ToOsslInput(std::span<const uint8_t> littleEndian, size_t osslSize, SecureBytes& out) {
  out = LittleEndian::Reversed(littleEndian);
  if (out.size() <= osslSize) {
    out.insert(out.begin(), osslSize - out.size(), 0);
    return true;
  }
  const size_t surplus = out.size() - osslSize;
  if (std::any_of(out.begin(), out.begin() + static_cast<ptrdiff_t>(surplus),
                  [](uint8_t b) { return b != 0; })) {
    return false;
  }
  out.erase(out.begin(), out.begin() + static_cast<ptrdiff_t>(surplus));
  return true;
}

// OpenSSL's big-endian result as exactly `width` little-endian bytes.
std::vector<uint8_t> ToCryptoApiOutput(std::span<const uint8_t> bigEndian, size_t width) {
  std::vector<uint8_t> out(width, 0);
  const size_t n = std::min(width, bigEndian.size());
  for (size_t i = 0; i < n; ++i) out[i] = bigEndian[bigEndian.size() - 1 - i];
  return out;
}

class ParamBuilder final {
 public:
  ParamBuilder() : m_bld(OSSL_PARAM_BLD_new()) {
    if (m_bld == nullptr) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  }
  ~ParamBuilder() { OSSL_PARAM_BLD_free(m_bld); }
  ParamBuilder(const ParamBuilder&) = delete;
  ParamBuilder& operator=(const ParamBuilder&) = delete;

  // Adds a little-endian field; the BIGNUM must live until Build().
  void Add(const char* name, std::span<const uint8_t> littleEndian) {
    m_numbers.push_back(LittleEndian::ToBignum(littleEndian));
    Ossl::Check(OSSL_PARAM_BLD_push_BN(m_bld, name, m_numbers.back().get()),
                static_cast<uint32_t>(NTE_NO_MEMORY));
  }
  void AddWord(const char* name, uint32_t value) {
    SecureBytes bytes;
    LittleEndian::AppendDword(bytes, value);
    Add(name, bytes);
  }
  OsslPtr<EVP_PKEY> Build(int selection) {
    OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(m_bld);
    if (params == nullptr) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
    OsslPtr<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_name(Ossl::LibContext(), "RSA", nullptr));
    EVP_PKEY* pkey = nullptr;
    const bool ok = ctx && EVP_PKEY_fromdata_init(ctx.get()) == 1 &&
                    EVP_PKEY_fromdata(ctx.get(), &pkey, selection, params) == 1;
    OSSL_PARAM_free(params);
    if (!ok) Ossl::Fail(static_cast<uint32_t>(NTE_BAD_KEY));
    return OsslPtr<EVP_PKEY>(pkey);
  }

 private:
  OSSL_PARAM_BLD* m_bld;
  std::vector<OsslPtr<BIGNUM>> m_numbers;
};

OsslPtr<EVP_PKEY> PublicPkey(std::span<const uint8_t> modulus, DWORD publicExponent) {
  ParamBuilder builder;
  builder.Add(OSSL_PKEY_PARAM_RSA_N, modulus);
  builder.AddWord(OSSL_PKEY_PARAM_RSA_E, publicExponent);
  return builder.Build(EVP_PKEY_PUBLIC_KEY);
}

// `priv` holds p, q, dP, dQ, qInv of `half` bytes each, then d, as the private blob does.
OsslPtr<EVP_PKEY> PrivatePkey(std::span<const uint8_t> modulus, DWORD publicExponent,
                              std::span<const uint8_t> priv, size_t half) {
  ParamBuilder builder;
  builder.Add(OSSL_PKEY_PARAM_RSA_N, modulus);
  builder.AddWord(OSSL_PKEY_PARAM_RSA_E, publicExponent);
  builder.Add(OSSL_PKEY_PARAM_RSA_D, priv.subspan(5 * half, modulus.size()));
  builder.Add(OSSL_PKEY_PARAM_RSA_FACTOR1, priv.subspan(0, half));
  builder.Add(OSSL_PKEY_PARAM_RSA_FACTOR2, priv.subspan(half, half));
  builder.Add(OSSL_PKEY_PARAM_RSA_EXPONENT1, priv.subspan(2 * half, half));
  builder.Add(OSSL_PKEY_PARAM_RSA_EXPONENT2, priv.subspan(3 * half, half));
  builder.Add(OSSL_PKEY_PARAM_RSA_COEFFICIENT1, priv.subspan(4 * half, half));
  return builder.Build(EVP_PKEY_KEYPAIR);
}

SecureBytes BignumParam(const EVP_PKEY* pkey, const char* name, size_t width) {
  BIGNUM* raw = nullptr;
  if (EVP_PKEY_get_bn_param(pkey, name, &raw) != 1) Ossl::Fail(static_cast<uint32_t>(NTE_FAIL));
  OsslPtr<BIGNUM> value(raw);
  return LittleEndian::FromBignum(*value, width);
}

OsslPtr<EVP_PKEY_CTX> OperationContext(const EVP_PKEY& pkey) {
  OsslPtr<EVP_PKEY_CTX> ctx(
      EVP_PKEY_CTX_new_from_pkey(Ossl::LibContext(), const_cast<EVP_PKEY*>(&pkey), nullptr));
  if (!ctx) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  return ctx;
}

void SetPadding(EVP_PKEY_CTX* ctx, bool oaep, uint32_t failCode) {
  Ossl::Check(EVP_PKEY_CTX_set_rsa_padding(ctx, oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING),
              failCode);
  if (oaep) {
    // CRYPT_OAEP: SHA-1 for both the label hash and MGF1, empty label (RFC 8017 section 7.1).
    Ossl::Check(EVP_PKEY_CTX_set_rsa_oaep_md(ctx, Ossl::Digest("SHA1")), failCode);
    Ossl::Check(EVP_PKEY_CTX_set_rsa_mgf1_md(ctx, Ossl::Digest("SHA1")), failCode);
  }
#ifdef OSSL_ASYM_CIPHER_PARAM_IMPLICIT_REJECTION
  if (!oaep) {
    // Bad type-2 padding must be reported (NTE_BAD_DATA), not replaced by a random message.
    unsigned int off = 0;
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_uint(OSSL_ASYM_CIPHER_PARAM_IMPLICIT_REJECTION, &off),
        OSSL_PARAM_construct_end()};
    EVP_PKEY_CTX_set_params(ctx, params);
  }
#endif
}

// Fresh RSA material of `bits` bits with e = 65537 for lengths below OpenSSL's key generation
// minimum (512): two probable primes of half the length each (top two bits set, so that the
// product has exactly `bits` bits) and the standard CRT values.
OsslPtr<EVP_PKEY> GenerateSmall(DWORD bits) {
  OsslPtr<BN_CTX> bnCtx(BN_CTX_secure_new_ex(Ossl::LibContext()));
  OsslPtr<BIGNUM> e(BN_new()), p(BN_new()), q(BN_new()), n(BN_new()), d(BN_new());
  OsslPtr<BIGNUM> p1(BN_new()), q1(BN_new()), phi(BN_new()), dp(BN_new()), dq(BN_new());
  OsslPtr<BIGNUM> qinv(BN_new()), gcd(BN_new());
  if (!bnCtx || !e || !p || !q || !n || !d || !p1 || !q1 || !phi || !dp || !dq || !qinv || !gcd) {
    Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  }
  const uint32_t fail = static_cast<uint32_t>(NTE_FAIL);
  Ossl::Check(BN_set_word(e.get(), RsaKey::kPublicExponent), fail);
  const int pBits = static_cast<int>((bits + 1) / 2);
  const int qBits = static_cast<int>(bits / 2);
  auto makePrime = [&](BIGNUM* prime, BIGNUM* minusOne, int primeBits) {
    for (;;) {
      Ossl::Check(
          BN_generate_prime_ex2(prime, primeBits, 0, nullptr, nullptr, nullptr, bnCtx.get()), fail);
      Ossl::Check(BN_sub(minusOne, prime, BN_value_one()), fail);
      Ossl::Check(BN_gcd(gcd.get(), minusOne, e.get(), bnCtx.get()), fail);
      if (BN_is_one(gcd.get())) return;
    }
  };
  do {
    makePrime(p.get(), p1.get(), pBits);
    makePrime(q.get(), q1.get(), qBits);
  } while (BN_cmp(p.get(), q.get()) == 0);
  Ossl::Check(BN_mul(n.get(), p.get(), q.get(), bnCtx.get()), fail);
  Ossl::Check(BN_mul(phi.get(), p1.get(), q1.get(), bnCtx.get()), fail);
  if (BN_mod_inverse(d.get(), e.get(), phi.get(), bnCtx.get()) == nullptr) Ossl::Fail(fail);
  Ossl::Check(BN_mod(dp.get(), d.get(), p1.get(), bnCtx.get()), fail);
  Ossl::Check(BN_mod(dq.get(), d.get(), q1.get(), bnCtx.get()), fail);
  if (BN_mod_inverse(qinv.get(), q.get(), p.get(), bnCtx.get()) == nullptr) Ossl::Fail(fail);

  OSSL_PARAM_BLD* bld = OSSL_PARAM_BLD_new();
  if (bld == nullptr) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  const bool pushed =
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_N, n.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_E, e.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_D, d.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_FACTOR1, p.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_FACTOR2, q.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_EXPONENT1, dp.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_EXPONENT2, dq.get()) == 1 &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_COEFFICIENT1, qinv.get()) == 1;
  OSSL_PARAM* params = pushed ? OSSL_PARAM_BLD_to_param(bld) : nullptr;
  OSSL_PARAM_BLD_free(bld);
  if (params == nullptr) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  OsslPtr<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_name(Ossl::LibContext(), "RSA", nullptr));
  EVP_PKEY* pkey = nullptr;
  const bool ok = ctx && EVP_PKEY_fromdata_init(ctx.get()) == 1 &&
                  EVP_PKEY_fromdata(ctx.get(), &pkey, EVP_PKEY_KEYPAIR, params) == 1;
  OSSL_PARAM_free(params);
  if (!ok) Ossl::Fail(fail);
  return OsslPtr<EVP_PKEY>(pkey);
}

OsslPtr<EVP_PKEY> GenerateWithEvp(DWORD bits) {
  const uint32_t fail = static_cast<uint32_t>(NTE_FAIL);
  OsslPtr<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_name(Ossl::LibContext(), "RSA", nullptr));
  if (!ctx) Ossl::Fail(fail);
  OsslPtr<BIGNUM> e(BN_new());
  if (!e || BN_set_word(e.get(), RsaKey::kPublicExponent) != 1) Ossl::Fail(fail);
  Ossl::Check(EVP_PKEY_keygen_init(ctx.get()), fail);
  Ossl::Check(EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), static_cast<int>(bits)), fail);
  Ossl::Check(EVP_PKEY_CTX_set1_rsa_keygen_pubexp(ctx.get(), e.get()), fail);
  Ossl::Check(EVP_PKEY_CTX_set_rsa_keygen_primes(ctx.get(), 2), fail);
  EVP_PKEY* pkey = nullptr;
  Ossl::Check(EVP_PKEY_generate(ctx.get(), &pkey), fail);
  return OsslPtr<EVP_PKEY>(pkey);
}

// RSA lengths of the providers (PP_ENUMALGS_EX): 384..16384 bits, default 1024, except the
// Base provider, whose default is 512 and whose exchange keys stop at 1024 bits.
struct RsaRange {
  DWORD defaultBits;
  DWORD minBits;
  DWORD maxBits;
};

RsaRange RangeFor(const ProviderInfo& provider, ALG_ID algid) {
  if (provider.Find(algid) == nullptr) Fail(NTE_BAD_ALGID);
  const bool base = provider.name() == std::string_view(MS_DEF_PROV_A);
  const DWORD maxBits = (base && algid == CALG_RSA_KEYX) ? 1024 : kLargestModulus;
  return RsaRange{base ? 512u : 1024u, 384u, maxBits};
}

}  // namespace

std::unique_ptr<RsaKey> RsaKey::Generate(const ProviderInfo& provider, ALG_ID algid, DWORD flags) {
  const ALG_ID rsaAlgid = RsaAlgid(algid);
  const RsaRange range = RangeFor(provider, rsaAlgid);
  DWORD bits = flags >> 16;
  if (bits == 0) bits = range.defaultBits;
  if (bits < range.minBits || bits > range.maxBits || bits % 8 != 0) Fail(NTE_BAD_DATA);

  // OpenSSL refuses to generate keys under 512 bits; the provider allows 384.
  const OsslPtr<EVP_PKEY> pkey = bits >= 512 ? GenerateWithEvp(bits) : GenerateSmall(bits);

  std::unique_ptr<RsaKey> key(new RsaKey());
  key->m_algid = rsaAlgid;
  key->m_bitLength = bits;
  key->m_publicExponent = kPublicExponent;
  key->m_permissions = kDefaultPermissions | ((flags & CRYPT_EXPORTABLE) ? CRYPT_EXPORT : 0);
  const size_t b = ModulusWidth(bits);
  const size_t h = HalfWidth(bits);
  const SecureBytes n = BignumParam(pkey.get(), OSSL_PKEY_PARAM_RSA_N, b);
  key->m_modulus.assign(n.begin(), n.end());
  SecureBytes priv;
  for (const char* name :
       {OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2, OSSL_PKEY_PARAM_RSA_EXPONENT1,
        OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1}) {
    const SecureBytes field = BignumParam(pkey.get(), name, h);
    priv.insert(priv.end(), field.begin(), field.end());
  }
  const SecureBytes d = BignumParam(pkey.get(), OSSL_PKEY_PARAM_RSA_D, b);
  priv.insert(priv.end(), d.begin(), d.end());
  key->m_private = std::move(priv);
  return key;
}

std::unique_ptr<RsaKey> RsaKey::ImportPublicBlob(const ProviderInfo& /*provider*/,
                                                 std::span<const uint8_t> blob, DWORD flags) {
  const KeyBlob::Header header = KeyBlob::ReadHeader(blob);
  if (header.type != PUBLICKEYBLOB) Fail(NTE_BAD_TYPE);
  if (header.algid != CALG_RSA_KEYX && header.algid != CALG_RSA_SIGN) Fail(NTE_BAD_ALGID);
  if (blob.size() < KeyBlob::kHeaderSize + kRsaPubKeySize) Fail(NTE_BAD_DATA);
  if (LittleEndian::ReadDword(blob, 8) != kMagicPublic) Fail(NTE_BAD_DATA);
  const DWORD bitLength = LittleEndian::ReadDword(blob, 12);
  if (bitLength == 0 || bitLength > kLargestModulus) Fail(NTE_BAD_DATA);
  const size_t b = ModulusWidth(bitLength);
  const size_t start = KeyBlob::kHeaderSize + kRsaPubKeySize;
  if (blob.size() < start + b) Fail(NTE_BAD_DATA);

  // The modulus is kept as given, even when it is not a valid RSA modulus: Windows imports and
  // re-exports such keys unchanged.
  std::unique_ptr<RsaKey> key(new RsaKey());
  key->m_algid = header.algid;
  key->m_bitLength = bitLength;
  key->m_publicExponent = LittleEndian::ReadDword(blob, 16);
  key->m_permissions = kDefaultPermissions | ((flags & CRYPT_EXPORTABLE) ? CRYPT_EXPORT : 0);
  key->m_modulus.assign(blob.begin() + static_cast<ptrdiff_t>(start),
                        blob.begin() + static_cast<ptrdiff_t>(start + b));
  return key;
}

std::unique_ptr<RsaKey> RsaKey::ImportPrivateBlob(const ProviderInfo& provider,
                                                  std::span<const uint8_t> blob, DWORD flags,
                                                  SymmetricKey* unwrap) {
  const KeyBlob::Header header = KeyBlob::ReadHeader(blob);
  if (header.type != PRIVATEKEYBLOB) Fail(NTE_BAD_TYPE);
  if (header.algid != CALG_RSA_KEYX && header.algid != CALG_RSA_SIGN) Fail(NTE_BAD_ALGID);
  const RsaRange range = RangeFor(provider, header.algid);

  SecureBytes body(blob.begin() + KeyBlob::kHeaderSize, blob.end());
  if (unwrap != nullptr) {
    // The wrapping is the session key's CryptEncrypt with Final=TRUE over everything after
    // the header (unconfirmed padding), so CryptDecrypt with Final=TRUE undoes it.
    DWORD length = static_cast<DWORD>(body.size());
    if (length == 0) Fail(NTE_BAD_DATA);
    unwrap->Decrypt(nullptr, true, 0, body.data(), &length);
    body.resize(length);
  }
  std::unique_ptr<RsaKey> key = ParsePrivateBody(header.algid, body, flags);
  if (key->m_bitLength < range.minBits || key->m_bitLength > range.maxBits) Fail(NTE_BAD_DATA);
  return key;
}

std::unique_ptr<RsaKey> RsaKey::ParsePrivateBody(ALG_ID algid, std::span<const uint8_t> body,
                                                 DWORD flags) {
  if (body.size() < kRsaPubKeySize) Fail(NTE_BAD_DATA);
  if (LittleEndian::ReadDword(body, 0) != kMagicPrivate) Fail(NTE_BAD_DATA);
  const DWORD bitLength = LittleEndian::ReadDword(body, 4);
  if (bitLength == 0 || bitLength > kLargestModulus) Fail(NTE_BAD_DATA);
  const size_t b = ModulusWidth(bitLength);
  const size_t h = HalfWidth(bitLength);
  const size_t fixed = kRsaPubKeySize + b + 5 * h;
  if (body.size() < fixed) Fail(NTE_BAD_DATA);

  std::unique_ptr<RsaKey> key(new RsaKey());
  key->m_algid = algid;
  key->m_bitLength = bitLength;
  key->m_publicExponent = LittleEndian::ReadDword(body, 8);
  key->m_permissions = kDefaultPermissions | ((flags & CRYPT_EXPORTABLE) ? CRYPT_EXPORT : 0);
  const auto at = [&](size_t offset) { return body.begin() + static_cast<ptrdiff_t>(offset); };
  key->m_modulus.assign(at(kRsaPubKeySize), at(kRsaPubKeySize + b));
  // The private exponent may be cut short: it takes what remains, zero-filled to full width.
  const size_t dLength = std::min(b, body.size() - fixed);
  SecureBytes priv(at(kRsaPubKeySize + b), at(fixed + dLength));
  priv.resize(5 * h + b, 0);
  key->m_private = std::move(priv);
  return key;
}

SecureBytes RsaKey::StoredForm() const {
  if (!m_private) Fail(NTE_BAD_KEY);
  SecureBytes out;
  LittleEndian::AppendDword(out, kStoredMagic);
  LittleEndian::AppendDword(out, exportable() ? kStoredExportable : 0);
  const SecureBytes blob = PrivateBlobBytes();
  out.insert(out.end(), blob.begin(), blob.end());
  return out;
}

std::unique_ptr<RsaKey> RsaKey::FromStoredForm(const ProviderInfo& /*provider*/,
                                               std::span<const uint8_t> stored) {
  try {
    if (stored.size() < 8 || LittleEndian::ReadDword(stored, 0) != kStoredMagic) {
      Fail(NTE_KEYSET_ENTRY_BAD);
    }
    const DWORD storedFlags = LittleEndian::ReadDword(stored, 4);
    const std::span<const uint8_t> blob = stored.subspan(8);
    const KeyBlob::Header header = KeyBlob::ReadHeader(blob);
    if (header.type != PRIVATEKEYBLOB ||
        (header.algid != CALG_RSA_KEYX && header.algid != CALG_RSA_SIGN)) {
      Fail(NTE_KEYSET_ENTRY_BAD);
    }
    const DWORD flags = (storedFlags & kStoredExportable) ? CRYPT_EXPORTABLE : 0;
    std::unique_ptr<RsaKey> key =
        ParsePrivateBody(header.algid, blob.subspan(KeyBlob::kHeaderSize), flags);
    // A stored pair is always complete: a short private exponent means a damaged entry.
    if (blob.size() != key->PrivateBlobSize()) Fail(NTE_KEYSET_ENTRY_BAD);
    key->CheckConsistency();
    return key;
  } catch (const CspError& error) {
    if (error.code() == static_cast<uint32_t>(NTE_NO_MEMORY)) throw;
    Fail(NTE_KEYSET_ENTRY_BAD);
  }
}

// The file's checksum only says the bytes are those written; a key damaged before it was written
// (or a checksum recomputed over damaged bytes) is caught by OpenSSL's full RSA key check: p and q
// prime, n = pq, d, dP, dQ and qInv consistent with e. Both OpenSSL forms are built here, so the
// key is never changed again by a const member and may be shared between threads.
// The one exception is a pair with public exponent 1 (d = dP = dQ = 1), which the Windows
// providers import and keep although OpenSSL's check refuses any such key: it is kept as they
// keep it, protected by the checksum alone.
void RsaKey::CheckConsistency() const {
  OsslPtr<EVP_PKEY_CTX> ctx = OperationContext(PrivateForm());
  if (m_publicExponent != 1 && EVP_PKEY_check(ctx.get()) != 1) {
    Ossl::Fail(static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD));
  }
  PublicForm();
}

std::unique_ptr<RsaKey> RsaKey::Clone() const {
  std::unique_ptr<RsaKey> copy(new RsaKey(*this));
  copy->m_publicPkey.reset();
  copy->m_privatePkey.reset();
  return copy;
}

const EVP_PKEY& RsaKey::PublicForm() const {
  if (!m_publicPkey) {
    m_publicPkey.reset(PublicPkey(m_modulus, m_publicExponent).release(), EVP_PKEY_free);
  }
  return *m_publicPkey;
}

const EVP_PKEY& RsaKey::PrivateForm() const {
  if (!m_private) Fail(NTE_BAD_KEY);
  if (!m_privatePkey) {
    m_privatePkey.reset(
        PrivatePkey(m_modulus, m_publicExponent, *m_private, HalfWidth(m_bitLength)).release(),
        EVP_PKEY_free);
  }
  return *m_privatePkey;
}

std::vector<uint8_t> RsaKey::ExportPublicBlob() const {
  SecureBytes out;
  KeyBlob::WriteHeader(out, PUBLICKEYBLOB, m_algid);
  LittleEndian::AppendDword(out, kMagicPublic);
  LittleEndian::AppendDword(out, m_bitLength);
  LittleEndian::AppendDword(out, m_publicExponent);
  out.insert(out.end(), m_modulus.begin(), m_modulus.end());
  return std::vector<uint8_t>(out.begin(), out.end());
}

size_t RsaKey::PrivateBlobSize() const {
  return KeyBlob::kHeaderSize + kRsaPubKeySize + 2 * m_modulus.size() + 5 * HalfWidth(m_bitLength);
}

SecureBytes RsaKey::PrivateBlobBytes() const {
  SecureBytes out;
  out.reserve(PrivateBlobSize());
  KeyBlob::WriteHeader(out, PRIVATEKEYBLOB, m_algid);
  LittleEndian::AppendDword(out, kMagicPrivate);
  LittleEndian::AppendDword(out, m_bitLength);
  LittleEndian::AppendDword(out, m_publicExponent);
  out.insert(out.end(), m_modulus.begin(), m_modulus.end());
  out.insert(out.end(), m_private->begin(), m_private->end());
  return out;
}

size_t RsaKey::ExportPrivateBlobSize(SymmetricKey* wrap) const {
  if (!m_private) Fail(NTE_BAD_KEY);
  if (!exportable()) Fail(NTE_BAD_KEY_STATE);
  if (wrap == nullptr) return PrivateBlobSize();
  DWORD length = static_cast<DWORD>(PrivateBlobSize() - KeyBlob::kHeaderSize);
  wrap->Encrypt(nullptr, true, 0, nullptr, &length, 0);
  return KeyBlob::kHeaderSize + length;
}

SecureBytes RsaKey::ExportPrivateBlob(SymmetricKey* wrap) const {
  const size_t size = ExportPrivateBlobSize(wrap);
  SecureBytes blob = PrivateBlobBytes();
  if (wrap == nullptr) return blob;
  const DWORD plainLength = static_cast<DWORD>(blob.size() - KeyBlob::kHeaderSize);
  blob.resize(size, 0);
  DWORD length = plainLength;
  wrap->Encrypt(nullptr, true, 0, blob.data() + KeyBlob::kHeaderSize, &length,
                static_cast<DWORD>(size - KeyBlob::kHeaderSize));
  blob.resize(KeyBlob::kHeaderSize + length);
  return blob;
}

void RsaKey::GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) const {
  if (pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  switch (param) {
    case KP_ALGID:
      return SizedOutput::WriteDword(m_algid, pbData, pdwDataLen);
    case KP_KEYLEN:
    case KP_BLOCKLEN:
      return SizedOutput::WriteDword(m_bitLength, pbData, pdwDataLen);
    case KP_PERMISSIONS:
      return SizedOutput::WriteDword(m_permissions, pbData, pdwDataLen);
    case KP_SALT:  // Windows: NTE_BAD_KEY for KP_SALT of an RSA key
    case KP_SALT_EX:
    case KP_IV:
    case KP_PADDING:
    case KP_MODE:
    case KP_MODE_BITS:
    case KP_EFFECTIVE_KEYLEN:
      Fail(NTE_BAD_KEY);
    default:
      Fail(NTE_BAD_TYPE);
  }
}

void RsaKey::SetParam(DWORD param, const BYTE* pbData, DWORD flags) {
  if (pbData == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (flags != 0) Fail(NTE_BAD_FLAGS);
  switch (param) {
    case KP_PERMISSIONS: {
      DWORD requested = 0;
      std::memcpy(&requested, pbData, sizeof requested);
      // CRYPT_EXPORT cannot be granted later, and clearing it is accepted but has no effect.
      if ((requested & CRYPT_EXPORT) != 0 && !exportable()) Fail(NTE_BAD_DATA);
      m_permissions = requested | (m_permissions & CRYPT_EXPORT);
      return;
    }
    case KP_SALT:
    case KP_SALT_EX:
    case KP_IV:
    case KP_PADDING:
    case KP_MODE:
    case KP_MODE_BITS:
    case KP_EFFECTIVE_KEYLEN:
      Fail(NTE_BAD_KEY);
    default:
      Fail(NTE_BAD_TYPE);
  }
}

void RsaKey::CheckEncryptionKey() const {
  // Only key-exchange keys encrypt (Windows: NTE_BAD_KEY with a signature key).
  if (m_algid != CALG_RSA_KEYX) Fail(NTE_BAD_KEY);
}

std::vector<uint8_t> RsaKey::EncryptBlock(std::span<const uint8_t> message, bool oaep) const {
  const size_t k = m_modulus.size();
  const size_t overhead = oaep ? 42 : 11;  // RFC 8017 sections 7.1.1 and 7.2.1
  if (k < overhead || message.size() > k - overhead) Fail(NTE_BAD_LEN);
  const EVP_PKEY* pkey = &PublicForm();
  OsslPtr<EVP_PKEY_CTX> ctx = OperationContext(*pkey);
  const uint32_t fail = static_cast<uint32_t>(NTE_BAD_KEY);
  Ossl::Check(EVP_PKEY_encrypt_init(ctx.get()), fail);
  SetPadding(ctx.get(), oaep, fail);
  size_t outLength = 0;
  Ossl::Check(EVP_PKEY_encrypt(ctx.get(), nullptr, &outLength, message.data(), message.size()),
              fail);
  std::vector<uint8_t> out(outLength);
  Ossl::Check(EVP_PKEY_encrypt(ctx.get(), out.data(), &outLength, message.data(), message.size()),
              static_cast<uint32_t>(NTE_BAD_LEN));
  out.resize(outLength);
  return ToCryptoApiOutput(out, k);
}

SecureBytes RsaKey::DecryptBlock(std::span<const uint8_t> littleEndian, bool oaep) const {
  if (!m_private) Fail(NTE_BAD_KEY);
  if (littleEndian.size() != m_modulus.size()) Fail(NTE_BAD_DATA);
  const EVP_PKEY* pkey = &PrivateForm();
  SecureBytes input;
  if (!ToOsslInput(littleEndian, static_cast<size_t>(EVP_PKEY_get_size(pkey)), input)) {
    Fail(NTE_BAD_DATA);
  }
  OsslPtr<EVP_PKEY_CTX> ctx = OperationContext(*pkey);
  const uint32_t bad = static_cast<uint32_t>(NTE_BAD_DATA);
  Ossl::Check(EVP_PKEY_decrypt_init(ctx.get()), static_cast<uint32_t>(NTE_BAD_KEY));
  SetPadding(ctx.get(), oaep, static_cast<uint32_t>(NTE_BAD_KEY));
  size_t outLength = input.size();
  SecureBytes out(outLength);
  Ossl::Check(EVP_PKEY_decrypt(ctx.get(), out.data(), &outLength, input.data(), input.size()), bad);
  out.resize(outLength);
  return out;
}

void RsaKey::Encrypt(HashObject* hash, bool /*final*/, DWORD flags, BYTE* pbData, DWORD* pdwDataLen,
                     DWORD dwBufLen) const {
  CheckEncryptionKey();
  if ((flags & ~static_cast<DWORD>(CRYPT_OAEP)) != 0) Fail(NTE_BAD_FLAGS);
  if (pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  const auto k = static_cast<DWORD>(m_modulus.size());
  if (pbData == nullptr) {
    *pdwDataLen = k;
    return;
  }
  if (dwBufLen < k) {
    *pdwDataLen = k;
    Fail(ERROR_MORE_DATA);
  }
  const std::span<const uint8_t> message(pbData, *pdwDataLen);
  const std::vector<uint8_t> cipher = EncryptBlock(message, (flags & CRYPT_OAEP) != 0);
  if (hash != nullptr) hash->HashData(message, 0);
  std::memcpy(pbData, cipher.data(), cipher.size());
  *pdwDataLen = k;
}

void RsaKey::Decrypt(HashObject* hash, bool /*final*/, DWORD flags, BYTE* pbData,
                     DWORD* pdwDataLen) const {
  CheckEncryptionKey();
  if ((flags & ~static_cast<DWORD>(CRYPT_OAEP)) != 0) Fail(NTE_BAD_FLAGS);
  if (pbData == nullptr || pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  if (!m_private) Fail(NTE_BAD_KEY);
  // The incoming length is both the ciphertext's length and the room for the plaintext (a
  // longer message fails with NTE_BAD_DATA and the length unchanged). Windows reads k bytes
  // whatever *pdwDataLen says; here a buffer shorter than the k-byte ciphertext is never read
  // past its end. It fails with NTE_BAD_DATA, the code the providers give for a ciphertext
  // they cannot use and for too little room, and the length stays unchanged.
  const size_t k = m_modulus.size();
  if (*pdwDataLen < k) Fail(NTE_BAD_DATA);
  const SecureBytes plain = DecryptBlock({pbData, k}, (flags & CRYPT_OAEP) != 0);
  if (plain.size() > *pdwDataLen) Fail(NTE_BAD_DATA);
  std::memcpy(pbData, plain.data(), plain.size());
  *pdwDataLen = static_cast<DWORD>(plain.size());
  if (hash != nullptr) hash->HashData(plain, 0);
}

void RsaKey::Sign(HashObject& hash, const char16_t* description, DWORD flags, BYTE* pbSignature,
                  DWORD* pdwSigLen) const {
  if ((flags & ~static_cast<DWORD>(CRYPT_NOHASHOID | CRYPT_X931_FORMAT)) != 0) {
    Fail(NTE_BAD_FLAGS);
  }
  if (pdwSigLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  const std::span<const uint8_t> prefix = DigestInfoPrefix(hash.algid());
  if (!m_private) Fail(NTE_BAD_KEY);
  const auto k = static_cast<DWORD>(m_modulus.size());
  if (pbSignature == nullptr) {
    *pdwSigLen = k;
    return;
  }
  if (*pdwSigLen < k) {
    *pdwSigLen = k;
    Fail(ERROR_MORE_DATA);
  }
  if (description != nullptr) hash.HashDescription(std::u16string_view(description));
  const SecureBytes& value = hash.Finish();
  // CRYPT_X931_FORMAT is accepted as Windows accepts it; the block stays PKCS#1 v1.5.
  const SecureBytes block = (flags & CRYPT_NOHASHOID) ? Concat({}, value) : Concat(prefix, value);
  if (block.size() + 11 > k) Fail(NTE_BAD_LEN);

  const EVP_PKEY* pkey = &PrivateForm();
  OsslPtr<EVP_PKEY_CTX> ctx = OperationContext(*pkey);
  const uint32_t fail = static_cast<uint32_t>(NTE_BAD_KEY);
  Ossl::Check(EVP_PKEY_sign_init(ctx.get()), fail);
  // No digest set: OpenSSL applies the type 1 padding of RFC 8017 section 9.2 to the block.
  Ossl::Check(EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING), fail);
  size_t length = 0;
  Ossl::Check(EVP_PKEY_sign(ctx.get(), nullptr, &length, block.data(), block.size()), fail);
  std::vector<uint8_t> signature(length);
  Ossl::Check(EVP_PKEY_sign(ctx.get(), signature.data(), &length, block.data(), block.size()),
              fail);
  signature.resize(length);
  const std::vector<uint8_t> out = ToCryptoApiOutput(signature, k);
  std::memcpy(pbSignature, out.data(), k);
  *pdwSigLen = k;
}

void RsaKey::Verify(HashObject& hash, const BYTE* pbSignature, DWORD dwSigLen,
                    const char16_t* description, DWORD flags) const {
  if ((flags & ~static_cast<DWORD>(CRYPT_NOHASHOID | CRYPT_X931_FORMAT)) != 0) {
    Fail(NTE_BAD_FLAGS);
  }
  const size_t k = m_modulus.size();
  if (dwSigLen != k) Fail(NTE_BAD_SIGNATURE);  // checked before the pointer, as on Windows
  if (pbSignature == nullptr) Fail(ERROR_INVALID_PARAMETER);
  const std::span<const uint8_t> prefix = DigestInfoPrefix(hash.algid());
  if (description != nullptr) hash.HashDescription(std::u16string_view(description));
  const SecureBytes& value = hash.Finish();

  const EVP_PKEY* pkey = &PublicForm();
  SecureBytes input;
  if (!ToOsslInput({pbSignature, k}, static_cast<size_t>(EVP_PKEY_get_size(pkey)), input)) {
    Fail(NTE_BAD_SIGNATURE);
  }
  OsslPtr<EVP_PKEY_CTX> ctx = OperationContext(*pkey);
  const uint32_t bad = static_cast<uint32_t>(NTE_BAD_SIGNATURE);
  Ossl::Check(EVP_PKEY_verify_recover_init(ctx.get()), bad);
  Ossl::Check(EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING), bad);
  size_t length = input.size();
  SecureBytes recovered(length);
  Ossl::Check(
      EVP_PKEY_verify_recover(ctx.get(), recovered.data(), &length, input.data(), input.size()),
      bad);
  recovered.resize(length);
  const SecureBytes withPrefix = Concat(prefix, value);
  const SecureBytes bare = Concat({}, value);
  const bool matches =
      recovered == bare || ((flags & CRYPT_NOHASHOID) == 0 && recovered == withPrefix);
  if (!matches) Fail(NTE_BAD_SIGNATURE);
}

}  // namespace quiv::platform
