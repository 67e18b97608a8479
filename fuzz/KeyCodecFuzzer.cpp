// Fuzz target: KeyCodec::ToBlob, the reader of PEM and DER keys from outside, with the property
// that whatever it accepts converts back and forth unchanged: the blob written as DER (and as
// PEM) reads back to the same blob.
//
// Input: byte 0 bit 0 chooses a private (1) or public (0) blob; the rest is the key file.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "FuzzSupport.h"
#include "platform/KeyCodec.h"

using fuzz::Require;
using quiv::platform::KeyCodec;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool wantPrivate = (data[0] & 1) != 0;
  constexpr uint32_t kKeyExchange = 0xA400;
  const std::span<const uint8_t> file(data + 1, size - 1);
  const KeyCodec::Result blob = KeyCodec::ToBlob(file, wantPrivate, "", kKeyExchange);
  if (!blob.m_ok) {
    Require(!blob.m_error.empty());
    return 0;
  }
  Require(blob.m_bytes.size() > 20 && blob.m_bytes[0] == (wantPrivate ? 7 : 6));
  for (const KeyCodec::Encoding encoding : {KeyCodec::Encoding::kDer, KeyCodec::Encoding::kPem}) {
    const KeyCodec::Result written = KeyCodec::FromBlob(blob.m_bytes, encoding, "");
    Require(written.m_ok);
    const KeyCodec::Result again = KeyCodec::ToBlob(written.m_bytes, wantPrivate, "", kKeyExchange);
    Require(again.m_ok && again.m_bytes == blob.m_bytes);
  }
  return 0;
}
