#include "DataWriter.h"

#include "HexText.h"

namespace quiv::cli {

void DataWriter::Write(std::span<const uint8_t> bytes) {
  if (m_hex) {
    m_output.Write(HexText::Encode(bytes));
  } else {
    m_output.Write(bytes);
  }
}

void DataWriter::Finish() {
  if (m_hex && !m_output.IsFile()) m_output.Write(std::string("\n"));
  m_output.Commit();
}

}  // namespace quiv::cli
