#include "automation/ByteArray.h"

#include <algorithm>

#include "automation/RunTime.h"
#include "automation/String.h"

namespace quiv {

ByteArray ByteArray::FromString(const String& text) {
  return ByteArray(text.Bytes());
}

void ByteArray::ReDimPreserve(int64_t upperBound) {
  if (upperBound < 0) RaiseRuntime(kErrSubscriptOutOfRange);
  m_bytes.resize(static_cast<size_t>(upperBound) + 1, 0);
}

void ByteArray::Wipe() {
  std::fill(m_bytes.begin(), m_bytes.end(), uint8_t{0});
}

uint8_t& ByteArray::At(int64_t index) {
  return m_bytes[CheckedIndex(index)];
}

uint8_t ByteArray::At(int64_t index) const {
  return m_bytes[CheckedIndex(index)];
}

String ByteArray::ToString() const {
  return String::FromBytes(m_bytes);
}

size_t ByteArray::CheckedIndex(int64_t index) const {
  if (index < 0 || index > UBound()) RaiseRuntime(kErrSubscriptOutOfRange);
  return static_cast<size_t>(index);
}

}  // namespace quiv
