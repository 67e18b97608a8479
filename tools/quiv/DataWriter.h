// DataWriter: bytes to an OutputFile, raw ("bin") or as hex text ("hex", the library's layout:
// upper case, no separators). Hex on standard output ends with a line break for the terminal;
// a hex file does not, as the library's FILE_HEX reader refuses a trailing line break.
#ifndef QUIV_TOOLS_QUIV_DATAWRITER_H
#define QUIV_TOOLS_QUIV_DATAWRITER_H

#include <cstdint>
#include <span>

#include "OutputFile.h"

namespace quiv::cli {

class DataWriter final {
 public:
  DataWriter(OutputFile& output, bool hex) : m_output(output), m_hex(hex) {}

  void Write(std::span<const uint8_t> bytes);
  // Ends the text (the line break of hex on standard output) and commits the file.
  void Finish();

 private:
  OutputFile& m_output;
  bool m_hex;
};

}  // namespace quiv::cli

#endif
