// Hex text as it arrives from callers and files: arbitrary UTF-16 text through
// CConvert::HexStringToByteArray. Properties: the converter accepts exactly what a tiny reference
// decoder accepts (even length, upper-case hex digits only), decodes to the same bytes, and
// accepted text unloads back to the identical text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "automation/ByteArray.h"
#include "automation/String.h"
#include "data/CConvert.h"

namespace {

int Digit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// The reference: nullopt-like flag plus bytes.
bool ReferenceDecode(const std::u16string& text, std::vector<uint8_t>& out) {
  if (text.size() % 2 != 0) return false;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int hi = Digit(text[i]);
    const int lo = Digit(text[i + 1]);
    if (hi < 0 || lo < 0) return false;
    out.push_back(static_cast<uint8_t>(hi * 16 + lo));
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Bias towards hex digits: each input byte picks a character, mostly from the hex alphabet.
  static const char16_t kAlphabet[] = u"0123456789ABCDEF0123456789ABCDEFabcdefG \n\x00e9";
  std::u16string text;
  for (size_t i = 0; i < size; ++i) text.push_back(kAlphabet[data[i] % (sizeof kAlphabet / 2 - 1)]);

  quiv::CConvert convert;
  quiv::ByteArray bytes;
  const bool ok = convert.HexStringToByteArray(quiv::String(text), bytes);
  std::vector<uint8_t> expected;
  const bool refOk = ReferenceDecode(text, expected);
  if (ok != refOk) std::abort();
  if (!ok) return 0;
  if (text.empty()) return 0;  // the empty text gives the library's empty array
  if (bytes.ToVector() != expected) std::abort();
  quiv::String back;
  if (!convert.UnloadItem(bytes, back, quiv::STRING_HEX, true)) {
    // A single zero byte is the library's empty array and cannot be unloaded, by design.
    if (expected.size() == 1 && expected[0] == 0) return 0;
    std::abort();
  }
  if (back.u16() != text) std::abort();
  return 0;
}
