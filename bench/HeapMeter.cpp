// The global allocation functions, counting. Each block carries its size in a header of
// alignof(std::max_align_t) bytes in front of what the caller gets, so the plain and array forms
// (sized or not, throwing or not) can all give the size back on delete. The over-aligned forms
// are left to the standard library: nothing measured here uses them.
#include "HeapMeter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr size_t kHeader = alignof(std::max_align_t);

std::atomic<size_t> g_current{0};
std::atomic<size_t> g_peak{0};

void* Take(size_t size) {
  void* block = std::malloc(size + kHeader);
  if (block == nullptr) return nullptr;
  *static_cast<size_t*>(block) = size;
  const size_t now = g_current.fetch_add(size, std::memory_order_relaxed) + size;
  size_t peak = g_peak.load(std::memory_order_relaxed);
  while (now > peak && !g_peak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
  return static_cast<char*>(block) + kHeader;
}

void Give(void* pointer) {
  if (pointer == nullptr) return;
  void* block = static_cast<char*>(pointer) - kHeader;
  g_current.fetch_sub(*static_cast<size_t*>(block), std::memory_order_relaxed);
  std::free(block);
}

void* TakeOrThrow(size_t size) {
  void* pointer = Take(size);
  if (pointer == nullptr) throw std::bad_alloc();
  return pointer;
}

}  // namespace

namespace quiv::bench {

size_t HeapMeter::Current() {
  return g_current.load(std::memory_order_relaxed);
}

size_t HeapMeter::Mark() {
  const size_t now = Current();
  g_peak.store(now, std::memory_order_relaxed);
  return now;
}

size_t HeapMeter::Peak() {
  return g_peak.load(std::memory_order_relaxed);
}

}  // namespace quiv::bench

void* operator new(size_t size) {
  return TakeOrThrow(size);
}
void* operator new[](size_t size) {
  return TakeOrThrow(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Take(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return Take(size);
}
void operator delete(void* pointer) noexcept {
  Give(pointer);
}
void operator delete[](void* pointer) noexcept {
  Give(pointer);
}
void operator delete(void* pointer, size_t) noexcept {
  Give(pointer);
}
void operator delete[](void* pointer, size_t) noexcept {
  Give(pointer);
}
void operator delete(void* pointer, const std::nothrow_t&) noexcept {
  Give(pointer);
}
void operator delete[](void* pointer, const std::nothrow_t&) noexcept {
  Give(pointer);
}
