// CspError: how the provider's internals report a failure. Every internal routine throws it with
// the code the caller must see from GetLastError(); the C entry points catch it in one place,
// set the thread's last error and return FALSE.
#ifndef QUIV_PLATFORM_CSPERROR_H
#define QUIV_PLATFORM_CSPERROR_H

#include <cstdint>
#include <exception>

namespace quiv::platform {

class CspError final : public std::exception {
 public:
  explicit CspError(uint32_t code) : m_code(code) {}
  // Accepts the signed NTE_ constants of wincrypt.h as they are written.
  explicit CspError(int32_t code) : m_code(static_cast<uint32_t>(code)) {}
  explicit CspError(long code) : m_code(static_cast<uint32_t>(code)) {}

  uint32_t code() const { return m_code; }
  const char* what() const noexcept override { return "cryptographic provider error"; }

 private:
  uint32_t m_code;
};

}  // namespace quiv::platform

#endif
