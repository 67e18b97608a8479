#include "automation/MapPageContext.h"

#include <utility>

namespace quiv {

MapPageContext::MapPageContext(const std::map<String, String>& serverVariables, String queryString)
    : m_queryString(std::move(queryString)) {
  for (const auto& [name, value] : serverVariables) m_variables[name.UCase().u16()] = value;
}

String MapPageContext::ServerVariable(const String& name) const {
  const auto found = m_variables.find(name.UCase().u16());
  return found == m_variables.end() ? String() : found->second;
}

}  // namespace quiv
