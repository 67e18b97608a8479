#include "automation/RuntimeError.h"

#include <utility>

namespace quiv {

RuntimeError::RuntimeError(int32_t number, String source, String description, uint32_t lastDllError)
    : m_number(number),
      m_source(std::move(source)),
      m_description(std::move(description)),
      m_lastDllError(lastDllError),
      m_what(std::to_string(number) + ": " + m_description.ToUtf8() + " (" + m_source.ToUtf8() +
             ")") {}

}  // namespace quiv
