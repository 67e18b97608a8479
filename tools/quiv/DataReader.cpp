#include "DataReader.h"

#include <algorithm>

#include "UsageError.h"

namespace quiv::cli {

size_t DataReader::ReadInto(std::vector<uint8_t>& out, size_t size) {
  const size_t start = out.size();
  if (!m_hex) {
    out.resize(start + size);
    const size_t got = m_input.Read(out.data() + start, size);
    out.resize(start + got);
    m_consumed += got;
    return got;
  }
  while (m_decoded.size() < size && !m_end) {
    m_text.resize(2 * size + 64);
    const size_t got = m_input.Read(m_text.data(), m_text.size());
    m_consumed += got;
    if (got == 0) {
      m_end = true;
      if (!m_decoder.Finish()) throw CommandFailure(m_input.Name() + ": odd number of hex digits");
      break;
    }
    if (!m_decoder.Feed(std::span(m_text.data(), got), m_decoded)) {
      throw CommandFailure(m_input.Name() + ": not hex text");
    }
  }
  const size_t take = std::min(size, m_decoded.size());
  out.insert(out.end(), m_decoded.begin(), m_decoded.begin() + static_cast<ptrdiff_t>(take));
  m_decoded.erase(m_decoded.begin(), m_decoded.begin() + static_cast<ptrdiff_t>(take));
  return take;
}

}  // namespace quiv::cli
