#include "KeyFile.h"

#include <string_view>

#include "HexText.h"
#include "UsageError.h"
#include "platform/KeyCodec.h"

namespace quiv::cli {

using platform::KeyCodec;

std::string KeyFile::DetectForm(std::span<const uint8_t> data) {
  const std::string_view text(reinterpret_cast<const char*>(data.data()), data.size());
  if (text.find("-----BEGIN ") != std::string_view::npos) return "pem";
  if (data.size() >= 8 && (data[0] == kPublicKeyBlob || data[0] == kPrivateKeyBlob) &&
      data[1] == 2) {
    return "msblob";
  }
  if (HexText::LooksLikeHex(data)) return "hex";
  return "der";
}

std::vector<uint8_t> KeyFile::ToBlob(std::span<const uint8_t> data, const std::string& form,
                                     bool wantPrivate, const std::string& passphrase,
                                     uint32_t algId) {
  const std::string actual = form == "auto" ? DetectForm(data) : form;
  if (actual == "msblob") return std::vector<uint8_t>(data.begin(), data.end());
  if (actual == "hex") {
    const std::optional<std::vector<uint8_t>> bytes =
        HexText::Decode(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
    if (!bytes) throw CommandFailure("the key file is not hex text");
    return *bytes;
  }
  const KeyCodec::Result result = KeyCodec::ToBlob(data, wantPrivate, passphrase, algId);
  if (!result.m_ok) throw CommandFailure("cannot read the key: " + result.m_error);
  return result.m_bytes;
}

std::vector<uint8_t> KeyFile::FromBlob(std::span<const uint8_t> blob, const std::string& form,
                                       const std::string& passphrase) {
  if (form == "msblob") return std::vector<uint8_t>(blob.begin(), blob.end());
  if (form == "hex") {
    const std::string text = HexText::Encode(blob);
    return std::vector<uint8_t>(text.begin(), text.end());
  }
  const KeyCodec::Result result = KeyCodec::FromBlob(
      blob, form == "pem" ? KeyCodec::Encoding::kPem : KeyCodec::Encoding::kDer, passphrase);
  if (!result.m_ok) throw CommandFailure("cannot convert the key: " + result.m_error);
  return result.m_bytes;
}

uint32_t KeyFile::AlgorithmOf(std::span<const uint8_t> blob) {
  if (blob.size() < 8) return 0;
  return static_cast<uint32_t>(blob[4]) | static_cast<uint32_t>(blob[5]) << 8 |
         static_cast<uint32_t>(blob[6]) << 16 | static_cast<uint32_t>(blob[7]) << 24;
}

void KeyFile::SetAlgorithm(std::vector<uint8_t>& blob, uint32_t algId) {
  if (blob.size() < 8) return;
  for (int i = 0; i < 4; ++i) blob[4 + i] = static_cast<uint8_t>(algId >> (8 * i));
}

}  // namespace quiv::cli
