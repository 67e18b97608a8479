// GuardedBuffer: `size` bytes that end exactly where an inaccessible (PROT_NONE) page begins, so
// that a read or write past the end faults at once, whatever the sanitizers see. The bytes
// before the buffer, up to the start of its first page, are filled with a known pattern and
// checked by PrefixIntact(), which catches writes before the start.
//
// Ownership: owns its mapping; not copyable. Size 0 gives a pointer to the guard page itself.
#ifndef QUIV_TESTS_SUPPORT_GUARDEDBUFFER_H
#define QUIV_TESTS_SUPPORT_GUARDEDBUFFER_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace quiv::test {

class GuardedBuffer final {
 public:
  explicit GuardedBuffer(size_t size);  // throws std::runtime_error when mapping fails
  // Copies `content` into a buffer of exactly its size.
  explicit GuardedBuffer(std::span<const uint8_t> content);
  ~GuardedBuffer();
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;

  uint8_t* data() { return m_data; }
  size_t size() const { return m_size; }
  std::span<uint8_t> bytes() { return {m_data, m_size}; }
  // Fills the buffer itself with `value`.
  void Fill(uint8_t value);
  // True when the bytes before the buffer still hold the pattern.
  bool PrefixIntact() const;

 private:
  uint8_t* m_map = nullptr;
  size_t m_mapSize = 0;
  uint8_t* m_data = nullptr;
  size_t m_size = 0;
};

}  // namespace quiv::test

#endif
