// HexText: hex as the command reads and writes it at its edges. Output is the library's layout
// (upper case, two digits a byte, no separators); input is forgiving, as files from other tools
// are: either case, and white space (line breaks included) anywhere between the digits.
#ifndef QUIV_TOOLS_QUIV_HEXTEXT_H
#define QUIV_TOOLS_QUIV_HEXTEXT_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quiv::cli {

class HexText final {
 public:
  static std::string Encode(std::span<const uint8_t> bytes);
  // nullopt for a character that is neither a hex digit nor white space, or an odd digit count.
  static std::optional<std::vector<uint8_t>> Decode(std::string_view text);
  // True when the text holds only hex digits and white space (and at least one digit).
  static bool LooksLikeHex(std::span<const uint8_t> bytes);

  // Streaming decoder for large inputs: Feed() takes any slice of the text and appends the bytes
  // of every complete digit pair; a digit left over waits for the next slice. False on a bad
  // character; Finish() is false when a lone digit is left.
  bool Feed(std::span<const uint8_t> text, std::vector<uint8_t>& out);
  bool Finish() const { return !m_pending; }

 private:
  int m_high = 0;
  bool m_pending = false;
};

}  // namespace quiv::cli

#endif
