#include "platform/CipherEngine.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/CspError.h"

namespace quiv::platform {
namespace {

constexpr uint32_t kFail = static_cast<uint32_t>(NTE_FAIL);

// OpenSSL names: the CBC form for CBC, the ECB form for ECB and as the block function of CFB-8.
const char* CipherName(ALG_ID algid, bool cbc) {
  switch (algid) {
    case CALG_RC2:
      return cbc ? "RC2-CBC" : "RC2-ECB";
    case CALG_DES:
      return cbc ? "DES-CBC" : "DES-ECB";
    case CALG_3DES_112:  // two-key EDE: K1, K2, K1
      return cbc ? "DES-EDE-CBC" : "DES-EDE-ECB";
    case CALG_3DES:
      return cbc ? "DES-EDE3-CBC" : "DES-EDE3-ECB";
    case CALG_AES_128:
      return cbc ? "AES-128-CBC" : "AES-128-ECB";
    case CALG_AES_192:
      return cbc ? "AES-192-CBC" : "AES-192-ECB";
    case CALG_AES_256:
      return cbc ? "AES-256-CBC" : "AES-256-ECB";
    case CALG_RC4:
      return "RC4";
    default:
      return nullptr;
  }
}

// EVP takes int lengths; CryptoAPI buffers can be larger, so work in slices.
constexpr size_t kSlice = size_t{1} << 30;

}  // namespace

size_t CipherEngine::BlockSizeOf(ALG_ID algid) {
  switch (algid) {
    case CALG_AES_128:
    case CALG_AES_192:
    case CALG_AES_256:
      return 16;
    case CALG_RC2:
    case CALG_DES:
    case CALG_3DES_112:
    case CALG_3DES:
      return 8;
    default:
      return 0;
  }
}

CipherEngine::CipherEngine(ALG_ID algid, DWORD effectiveBits, DWORD mode)
    : m_algid(algid),
      m_effectiveBits(effectiveBits),
      m_mode(mode),
      m_blockSize(BlockSizeOf(algid)) {}

CipherEngine::~CipherEngine() {
  OPENSSL_cleanse(m_iv.data(), m_iv.size());
  OPENSSL_cleanse(m_register.data(), m_register.size());
}

std::unique_ptr<CipherEngine> CipherEngine::Create(ALG_ID algid, std::span<const uint8_t> keying,
                                                   DWORD effectiveBits, DWORD mode,
                                                   std::span<const uint8_t> iv) {
  if (CipherName(algid, false) == nullptr) throw CspError(NTE_BAD_ALGID);
  if (BlockSizeOf(algid) != 0) {
    if (mode != CRYPT_MODE_ECB && mode != CRYPT_MODE_CBC && mode != CRYPT_MODE_CFB) {
      throw CspError(NTE_BAD_ALGID);
    }
  } else {
    mode = 0;
  }
  std::unique_ptr<CipherEngine> engine(new CipherEngine(algid, effectiveBits, mode));
  engine->m_keying.assign(keying.begin(), keying.end());
  std::copy_n(iv.begin(), std::min(iv.size(), engine->m_blockSize), engine->m_iv.begin());
  engine->Init(Direction::Encrypt, engine->m_iv);  // refuses an unusable key now, not on use
  engine->Reset();
  return engine;
}

std::unique_ptr<CipherEngine> CipherEngine::Clone() const {
  std::unique_ptr<CipherEngine> copy(new CipherEngine(m_algid, m_effectiveBits, m_mode));
  copy->m_keying = m_keying;
  copy->m_iv = m_iv;
  copy->m_register = m_register;
  copy->m_direction = m_direction;
  if (m_ctx) {
    copy->m_ctx.reset(EVP_CIPHER_CTX_new());
    if (!copy->m_ctx) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
    Ossl::Check(EVP_CIPHER_CTX_copy(copy->m_ctx.get(), m_ctx.get()), kFail);
  }
  return copy;
}

const EVP_CIPHER* CipherEngine::EvpCipher() const {
  return Ossl::Cipher(CipherName(m_algid, m_mode == CRYPT_MODE_CBC));
}

// (Re)keys the OpenSSL context for one direction starting at chain value `iv`. RC2 and RC4 take
// the whole keying string (key bytes then salt) as a variable-length key; RC2's effective bit
// count is set separately so that salt never changes it.
void CipherEngine::Init(Direction direction, std::span<const uint8_t> iv) {
  const int enc = direction == Direction::Decrypt ? 0 : 1;
  m_ctx.reset(EVP_CIPHER_CTX_new());
  if (!m_ctx) Ossl::Fail(static_cast<uint32_t>(NTE_NO_MEMORY));
  EVP_CIPHER_CTX* ctx = m_ctx.get();
  Ossl::Check(EVP_CipherInit_ex2(ctx, EvpCipher(), nullptr, nullptr, enc, nullptr), kFail);
  if (m_algid == CALG_RC2 || m_algid == CALG_RC4) {
    if (m_keying.empty() || m_keying.size() > INT_MAX ||
        EVP_CIPHER_CTX_set_key_length(ctx, static_cast<int>(m_keying.size())) != 1) {
      Ossl::Fail(static_cast<uint32_t>(NTE_BAD_KEY));
    }
  } else if (static_cast<int>(m_keying.size()) < EVP_CIPHER_CTX_get_key_length(ctx)) {
    Ossl::Fail(static_cast<uint32_t>(NTE_BAD_KEY));
  }
  if (m_algid == CALG_RC2) {
    Ossl::Check(EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_SET_RC2_KEY_BITS,
                                    static_cast<int>(m_effectiveBits), nullptr),
                static_cast<uint32_t>(NTE_BAD_KEY));
  }
  const bool usesIv = m_mode == CRYPT_MODE_CBC;
  Ossl::Check(
      EVP_CipherInit_ex2(ctx, nullptr, m_keying.data(), usesIv ? iv.data() : nullptr, enc, nullptr),
      kFail);
  Ossl::Check(EVP_CIPHER_CTX_set_padding(ctx, 0), kFail);
  m_direction = direction;
}

std::array<uint8_t, CipherEngine::kMaxBlockSize> CipherEngine::CurrentChain() const {
  std::array<uint8_t, kMaxBlockSize> chain = m_iv;
  if (m_mode == CRYPT_MODE_CBC && m_ctx && m_direction != Direction::None) {
    Ossl::Check(EVP_CIPHER_CTX_get_updated_iv(m_ctx.get(), chain.data(), m_blockSize), kFail);
  }
  return chain;
}

void CipherEngine::Reset() {
  m_register = m_iv;
  if (m_algid == CALG_RC4 || m_mode == CRYPT_MODE_CFB) {
    // RC4 restarts its keystream; CFB-8 always runs the block function forwards.
    Init(Direction::Encrypt, m_iv);
    return;
  }
  m_ctx.reset();
  m_direction = Direction::None;
}

void CipherEngine::Encrypt(std::span<uint8_t> data) {
  Run(Direction::Encrypt, data);
}

void CipherEngine::Decrypt(std::span<uint8_t> data) {
  Run(Direction::Decrypt, data);
}

void CipherEngine::Run(Direction direction, std::span<uint8_t> data) {
  if (m_algid != CALG_RC4 && data.size() % m_blockSize != 0) throw CspError(NTE_BAD_DATA);
  if (m_mode == CRYPT_MODE_CFB) {
    RunCfb8(direction == Direction::Encrypt, data);
    return;
  }
  if (m_algid != CALG_RC4 && m_direction != direction) {
    // Encryption and decryption share the chain: carry it over to the other direction.
    const std::array<uint8_t, kMaxBlockSize> chain = CurrentChain();
    Init(direction, chain);
  }
  for (size_t at = 0; at < data.size(); at += kSlice) {
    const size_t n = std::min(kSlice, data.size() - at);
    int out = 0;
    Ossl::Check(EVP_CipherUpdate(m_ctx.get(), data.data() + at, &out, data.data() + at,
                                 static_cast<int>(n)),
                kFail);
  }
}

// 8-bit CFB (FIPS 81 / SP 800-38A with s = 8): encrypt the shift register (one block), XOR its
// first byte with the data byte, shift the ciphertext byte in at the end. Both directions use the
// block cipher forwards.
void CipherEngine::RunCfb8(bool encrypt, std::span<uint8_t> data) {
  std::array<uint8_t, kMaxBlockSize> stream{};
  const size_t block = m_blockSize;
  for (uint8_t& byte : data) {
    int out = 0;
    Ossl::Check(EVP_CipherUpdate(m_ctx.get(), stream.data(), &out, m_register.data(),
                                 static_cast<int>(block)),
                kFail);
    const uint8_t cipherByte = encrypt ? static_cast<uint8_t>(byte ^ stream[0]) : byte;
    byte = static_cast<uint8_t>(byte ^ stream[0]);
    std::memmove(m_register.data(), m_register.data() + 1, block - 1);
    m_register[block - 1] = cipherByte;
  }
  OPENSSL_cleanse(stream.data(), stream.size());
}

}  // namespace quiv::platform
