// ByteArray: the automation world's zero-based byte array. By the library's convention a fresh
// or cleared array is ONE element holding 0, and such an array counts as empty (IsEmpty()).
// An array with no elements at all (what an empty string's bytes give) exists too: its UBound()
// is -1 and it also counts as empty. UBound() is size() - 1.
//
// The array owns its bytes (value semantics). operator[] is unchecked; At() raises run-time
// error 9 ("Subscript out of range") for an index outside 0..UBound().
#ifndef QUIV_AUTOMATION_BYTEARRAY_H
#define QUIV_AUTOMATION_BYTEARRAY_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/QuivExport.h"

namespace quiv {

class String;

class QUIV_API ByteArray final {
 public:
  ByteArray() : m_bytes(1, 0) {}
  explicit ByteArray(std::vector<uint8_t> bytes) : m_bytes(std::move(bytes)) {}
  explicit ByteArray(std::span<const uint8_t> bytes) : m_bytes(bytes.begin(), bytes.end()) {}
  ByteArray(std::initializer_list<uint8_t> bytes) : m_bytes(bytes) {}
  // The string's bytes exactly (two per character, plus a lone last byte).
  static ByteArray FromString(const String& text);

  // Back to the one-element empty form.
  void Clear() { m_bytes.assign(1, 0); }
  // True for the one-element {0} form and for an array with no elements.
  bool IsEmpty() const { return m_bytes.empty() || (m_bytes.size() == 1 && m_bytes[0] == 0); }
  int64_t UBound() const { return static_cast<int64_t>(m_bytes.size()) - 1; }
  // Resizes to upperBound + 1 elements, keeping the leading bytes and zero-filling new ones.
  // A negative bound raises run-time error 9.
  void ReDimPreserve(int64_t upperBound);
  // Makes room for `capacity` elements without changing the array, so that a later ReDimPreserve
  // up to that size keeps the buffer (and its already touched pages).
  void Reserve(size_t capacity) { m_bytes.reserve(capacity); }
  // How many elements fit before the buffer must move.
  size_t Capacity() const { return m_bytes.capacity(); }
  // Zeroes every element, keeping the size.
  void Wipe();

  uint8_t* data() { return m_bytes.data(); }
  const uint8_t* data() const { return m_bytes.data(); }
  size_t size() const { return m_bytes.size(); }
  uint8_t& operator[](size_t index) { return m_bytes[index]; }
  uint8_t operator[](size_t index) const { return m_bytes[index]; }
  uint8_t& At(int64_t index);
  uint8_t At(int64_t index) const;
  std::span<const uint8_t> span() const { return m_bytes; }
  const std::vector<uint8_t>& ToVector() const { return m_bytes; }
  // The bytes read as a String (two bytes per character).
  String ToString() const;

  friend bool operator==(const ByteArray& lhs, const ByteArray& rhs) = default;

 private:
  size_t CheckedIndex(int64_t index) const;

  std::vector<uint8_t> m_bytes;
};

}  // namespace quiv

#endif
