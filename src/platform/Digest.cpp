#include "platform/Digest.h"

#include <nettle/md2.h>
#include <openssl/crypto.h>

#include "platform/CspError.h"

namespace quiv::platform {
namespace {

// OpenSSL's name of a digest held in an EVP context; MD2 is not one of them.
const char* EvpName(ALG_ID algid) {
  switch (algid) {
    case CALG_MD4:
      return "MD4";
    case CALG_MD5:
      return "MD5";
    case CALG_SHA1:
      return "SHA1";
    case CALG_SHA_256:
      return "SHA256";
    case CALG_SHA_384:
      return "SHA384";
    case CALG_SHA_512:
      return "SHA512";
    default:
      return nullptr;
  }
}

}  // namespace

void Digest::Md2Deleter::operator()(md2_ctx* p) const {
  OPENSSL_cleanse(p, sizeof(*p));
  delete p;
}

bool Digest::Supports(ALG_ID algid) {
  return algid == CALG_MD2 || EvpName(algid) != nullptr;
}

Digest::Digest(ALG_ID algid) : m_algid(algid) {
  if (algid == CALG_MD2) {
    m_md2.reset(new md2_ctx);
    md2_init(m_md2.get());
    return;
  }
  const char* name = EvpName(algid);
  if (name == nullptr) throw CspError(NTE_BAD_ALGID);
  m_evp.reset(EVP_MD_CTX_new());
  if (!m_evp) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  Ossl::Check(EVP_DigestInit_ex(m_evp.get(), Ossl::Digest(name), nullptr),
              static_cast<uint32_t>(NTE_FAIL));
}

Digest::~Digest() = default;

SecureBytes Digest::Compute(ALG_ID algid, std::span<const uint8_t> data) {
  Digest digest(algid);
  digest.Update(data);
  return digest.Final();
}

size_t Digest::SizeOf(ALG_ID algid) {
  switch (algid) {
    case CALG_MD2:
    case CALG_MD4:
    case CALG_MD5:
      return 16;
    case CALG_SHA1:
      return 20;
    case CALG_SHA_256:
      return 32;
    case CALG_SHA_384:
      return 48;
    case CALG_SHA_512:
      return 64;
    default:
      return 0;
  }
}

size_t Digest::HmacBlockOf(ALG_ID algid) {
  if (!Supports(algid)) return 0;
  return (algid == CALG_SHA_384 || algid == CALG_SHA_512) ? 128 : 64;
}

bool Digest::IsSha2(ALG_ID algid) {
  return algid == CALG_SHA_256 || algid == CALG_SHA_384 || algid == CALG_SHA_512;
}

void Digest::Update(std::span<const uint8_t> data) {
  if (data.empty()) return;
  if (m_md2) {
    md2_update(m_md2.get(), data.size(), data.data());
    return;
  }
  Ossl::Check(EVP_DigestUpdate(m_evp.get(), data.data(), data.size()),
              static_cast<uint32_t>(NTE_FAIL));
}

SecureBytes Digest::Final() {
  SecureBytes out(size());
  if (m_md2) {
    md2_digest(m_md2.get(), out.size(), out.data());
    return out;
  }
  unsigned int length = 0;
  Ossl::Check(EVP_DigestFinal_ex(m_evp.get(), out.data(), &length),
              static_cast<uint32_t>(NTE_FAIL));
  return out;
}

std::unique_ptr<Digest> Digest::Clone() const {
  auto copy = std::make_unique<Digest>(m_algid);
  if (m_md2) {
    *copy->m_md2 = *m_md2;
    return copy;
  }
  Ossl::Check(EVP_MD_CTX_copy_ex(copy->m_evp.get(), m_evp.get()), static_cast<uint32_t>(NTE_FAIL));
  return copy;
}

}  // namespace quiv::platform
