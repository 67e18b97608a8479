// CipherEngine: a keyed symmetric cipher with its running state, as a CryptoAPI session key uses
// it: RC2 (with its effective key length), DES, two-key and three-key triple DES (64-bit blocks)
// and AES-128/192/256 (128-bit blocks) in ECB, CBC or 8-bit CFB, and RC4. It works on whole blocks
// only; padding, final/non-final rules and sizes are the business of SymmetricKey and HashObject.
//
// Encryption and decryption share one chain value, as they share one key handle in CryptoAPI:
// switching direction carries the current chain value over.
//
// Ownership: an engine owns its OpenSSL contexts and its copy of the keying bytes (wiped on
// destruction). Clone gives an independent engine with the same running state.
#ifndef QUIV_PLATFORM_CIPHERENGINE_H
#define QUIV_PLATFORM_CIPHERENGINE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/Ossl.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class CipherEngine final {
 public:
  static constexpr size_t kMaxBlockSize = 16;  // AES; the other block ciphers have 8

  // The block length in bytes of `algid`: 16 for AES, 8 for RC2 and the DES family, 0 for RC4
  // and unknown ids.
  static size_t BlockSizeOf(ALG_ID algid);

  // `keying` is what the key schedule is fed: key bytes followed by salt bytes.
  // `effectiveBits` is the RC2 effective key length (ignored otherwise). `mode` is
  // CRYPT_MODE_ECB, CRYPT_MODE_CBC or CRYPT_MODE_CFB for block ciphers (ignored for RC4); `iv` is
  // the initial chain value, one block long (ignored for ECB and RC4).
  // Throws CspError(NTE_BAD_ALGID) for an unknown algorithm or mode, NTE_BAD_KEY when the
  // library refuses the key (length), NTE_FAIL on other library failures.
  static std::unique_ptr<CipherEngine> Create(ALG_ID algid, std::span<const uint8_t> keying,
                                              DWORD effectiveBits, DWORD mode,
                                              std::span<const uint8_t> iv);
  ~CipherEngine();
  CipherEngine(const CipherEngine&) = delete;
  CipherEngine& operator=(const CipherEngine&) = delete;

  // Same key, mode and running state. Throws CspError(NTE_FAIL) on a library failure.
  std::unique_ptr<CipherEngine> Clone() const;

  bool IsStream() const { return m_algid == CALG_RC4; }
  size_t blockSize() const { return m_blockSize; }
  // Encrypts / decrypts `data` in place. Block ciphers need a multiple of blockSize()
  // (CspError(NTE_BAD_DATA) otherwise); RC4 takes any length and continues its keystream.
  // Throws CspError(NTE_FAIL) on a library failure.
  void Encrypt(std::span<uint8_t> data);
  void Decrypt(std::span<uint8_t> data);
  // Back to the initial state: chain value = IV, RC4 keystream from its beginning.
  void Reset();

 private:
  enum class Direction { None, Encrypt, Decrypt };

  CipherEngine(ALG_ID algid, DWORD effectiveBits, DWORD mode);
  const EVP_CIPHER* EvpCipher() const;
  void Init(Direction direction, std::span<const uint8_t> iv);
  void Run(Direction direction, std::span<uint8_t> data);
  void RunCfb8(bool encrypt, std::span<uint8_t> data);
  std::array<uint8_t, kMaxBlockSize> CurrentChain() const;

  ALG_ID m_algid;
  DWORD m_effectiveBits;
  DWORD m_mode;
  size_t m_blockSize;
  SecureBytes m_keying;
  // The first m_blockSize bytes are used.
  std::array<uint8_t, kMaxBlockSize> m_iv{};
  // CFB-8 shift register; for CBC the chain value lives inside m_ctx.
  std::array<uint8_t, kMaxBlockSize> m_register{};
  Direction m_direction = Direction::None;
  OsslPtr<EVP_CIPHER_CTX> m_ctx;
};

}  // namespace quiv::platform

#endif
