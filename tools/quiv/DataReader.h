// DataReader: the data of an InputStream as bytes, read from the raw bytes ("bin") or decoded
// from hex text ("hex") on the fly, in constant memory whatever the input's size.
#ifndef QUIV_TOOLS_QUIV_DATAREADER_H
#define QUIV_TOOLS_QUIV_DATAREADER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "HexText.h"
#include "InputStream.h"

namespace quiv::cli {

class DataReader final {
 public:
  DataReader(InputStream& input, bool hex) : m_input(input), m_hex(hex) {}

  // Appends up to `size` bytes to `out`, fewer only at the end; returns how many. A bad hex
  // character or a lone last digit is a CommandFailure.
  size_t ReadInto(std::vector<uint8_t>& out, size_t size);
  // How many input bytes (text, for hex) were consumed so far, for the progress bar.
  uint64_t Consumed() const { return m_consumed; }

 private:
  InputStream& m_input;
  bool m_hex;
  HexText m_decoder;
  std::vector<uint8_t> m_decoded;  // hex only: decoded bytes not yet handed out
  std::vector<uint8_t> m_text;
  bool m_end = false;
  uint64_t m_consumed = 0;
};

}  // namespace quiv::cli

#endif
