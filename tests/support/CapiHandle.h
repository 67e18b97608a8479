// CapiHandle: owns one CryptoAPI handle (context, key or hash) for a test and frees it with the
// matching C function when it goes out of scope, so a failing assertion never leaks a handle.
// Failures of the freeing call are ignored on purpose: some tests leave handles that the
// provider already invalidated (a key of a released context), and freeing those must fail.
//
// Declare the context before its keys and hashes: destruction runs in reverse order, so keys
// and hashes are destroyed while their context is still alive.
#ifndef QUIV_TESTS_SUPPORT_CAPIHANDLE_H
#define QUIV_TESTS_SUPPORT_CAPIHANDLE_H

#include <cstdint>
#include <utility>

#include "platform/wincrypt.h"

namespace quiv::test {

template <BOOL (*Free)(uint32_t)>
class CapiHandle final {
 public:
  CapiHandle() = default;
  explicit CapiHandle(uint32_t handle) : m_handle(handle) {}
  ~CapiHandle() { reset(); }
  CapiHandle(CapiHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, 0)) {}
  CapiHandle& operator=(CapiHandle&& other) noexcept {
    if (this != &other) {
      reset();
      m_handle = std::exchange(other.m_handle, 0);
    }
    return *this;
  }
  CapiHandle(const CapiHandle&) = delete;
  CapiHandle& operator=(const CapiHandle&) = delete;

  uint32_t get() const { return m_handle; }
  // For out-parameters: frees the current handle and gives the slot to the callee.
  uint32_t* put() {
    reset();
    return &m_handle;
  }
  // Gives up ownership without freeing (the test frees it itself and checks the result).
  uint32_t release() { return std::exchange(m_handle, 0); }
  void reset() {
    if (m_handle != 0) Free(std::exchange(m_handle, 0));
  }

 private:
  uint32_t m_handle = 0;
};

inline BOOL FreeContext(uint32_t h) {
  return CryptReleaseContext(h, 0);
}
inline BOOL FreeKey(uint32_t h) {
  return CryptDestroyKey(h);
}
inline BOOL FreeHash(uint32_t h) {
  return CryptDestroyHash(h);
}

using ProvHandle = CapiHandle<&FreeContext>;
using KeyHandle = CapiHandle<&FreeKey>;
using HashHandle = CapiHandle<&FreeHash>;

}  // namespace quiv::test

#endif
