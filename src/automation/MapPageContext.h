// MapPageContext: a page context built from a fixed set of server variables and a query
// string, for tests and for bindings that receive the request as a plain map (a WSGI environ).
// It owns copies of the names and values.
#ifndef QUIV_AUTOMATION_MAPPAGECONTEXT_H
#define QUIV_AUTOMATION_MAPPAGECONTEXT_H

#include <map>
#include <string>

#include "automation/IPageContext.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API MapPageContext final : public IPageContext {
 public:
  MapPageContext(const std::map<String, String>& serverVariables, String queryString);

  String ServerVariable(const String& name) const override;
  String QueryString() const override { return m_queryString; }
  String TypeName() const override { return u"MapPageContext"; }

 private:
  // Keyed by the upper-case name, so lookups are case-insensitive.
  std::map<std::u16string, String> m_variables;
  String m_queryString;
};

}  // namespace quiv

#endif
