// SecureBytes: a byte vector for key material, pass phrases and hash state that wipes its
// storage when it is freed or reallocated, so secrets do not linger in freed heap memory.
#ifndef QUIV_PLATFORM_SECUREBYTES_H
#define QUIV_PLATFORM_SECUREBYTES_H

#include <string.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quiv::platform {

template <class T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) {}
  T* allocate(size_t n) { return std::allocator<T>().allocate(n); }
  void deallocate(T* p, size_t n) {
    // explicit_bzero is not optimised away, and keeps OpenSSL out of this installed header.
    explicit_bzero(p, n * sizeof(T));
    std::allocator<T>().deallocate(p, n);
  }
  template <class U>
  bool operator==(const WipingAllocator<U>&) const {
    return true;
  }
};

using SecureBytes = std::vector<uint8_t, WipingAllocator<uint8_t>>;

}  // namespace quiv::platform

#endif
