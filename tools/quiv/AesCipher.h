// AesCipher: quiv enc/dec with -provider aes. The library's classes choose only the Base and
// Enhanced providers (by design), so AES keys are derived and used here through the AES
// provider's C functions (PROV_RSA_AES), by the same rule the library uses for its keys: the
// phrase's UTF-16LE code units and one NUL character hashed, CryptDeriveKey on that hash.
#ifndef QUIV_TOOLS_QUIV_AESCIPHER_H
#define QUIV_TOOLS_QUIV_AESCIPHER_H

#include <cstdint>
#include <span>
#include <vector>

#include "Options.h"

namespace quiv::cli {

class AesCipher final {
 public:
  // UsageError for bad option values; CommandFailure with the platform's error code otherwise.
  explicit AesCipher(const Options& options);
  ~AesCipher();
  AesCipher(const AesCipher&) = delete;
  AesCipher& operator=(const AesCipher&) = delete;

  // One section of the data; `final` for the last one (padding added or checked there).
  std::vector<uint8_t> Section(std::span<const uint8_t> data, bool final, bool decrypt);

 private:
  void ApplyModeAndIv(const Options& options);
  uint32_t m_context = 0;  // HCRYPTPROV
  uint32_t m_key = 0;      // HCRYPTKEY
};

}  // namespace quiv::cli

#endif
