// IPageContext: what the library reads of the web request a page is serving (the error record
// fills its web fields from it): server variables by name and the whole query string. A web
// binding implements it over its request; MapPageContext is a ready-made implementation.
// It is an automation Object, passed around by Ref.
#ifndef QUIV_AUTOMATION_IPAGECONTEXT_H
#define QUIV_AUTOMATION_IPAGECONTEXT_H

#include "automation/Object.h"
#include "automation/String.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API IPageContext : public Object {
 public:
  // The server variable `name` ("PATH_INFO", "LOCAL_ADDR", "HTTP_COOKIE", ...); names are
  // case-insensitive, and an unknown name gives the empty string, as web servers answer.
  virtual String ServerVariable(const String& name) const = 0;
  // The query string without the leading "?" (empty when the request has none).
  virtual String QueryString() const = 0;

  String TypeName() const override { return u"IPageContext"; }
};

}  // namespace quiv

#endif
