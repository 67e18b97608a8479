// ForeignDispatch: the caller's own objects that some members take, reached late-bound through
// their IDispatch, as the original run time reached them:
//  - a page context (OnStartPage, LoadError): any object with a method or property
//    ServerVariable(name) giving a string and a property QueryString;
//  - a dictionary (CContainer.GetListOfContainers): any object with RemoveAll() and Add(key,
//    item), which the member fills;
//  - an error object (CErrHandler.LoadError): any object with the properties Number, Source,
//    Description and LastDllError and a method Clear.
// The library's own objects are none of these. Each adapter keeps a counted reference to the
// caller's object for as long as the library keeps the adapter.
#ifndef QUIV_SERVER_FOREIGNDISPATCH_H
#define QUIV_SERVER_FOREIGNDISPATCH_H

#include "automation/Dictionary.h"
#include "automation/ErrObject.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "server/quiv_com.h"

namespace quiv::server {

// A counted reference to a caller's IDispatch with the two late-bound calls the adapters need.
class ForeignObject {
 public:
  explicit ForeignObject(IDispatch* object);
  ForeignObject(const ForeignObject&) = delete;
  ForeignObject& operator=(const ForeignObject&) = delete;
  ~ForeignObject();

  // Invokes `name` (method or property get) with the arguments, first argument first. The
  // result is Empty when the object has no such member or the call fails.
  Variant Call(const char16_t* name, std::initializer_list<Variant> args = {}) const;
  IDispatch* get() const { return m_object; }

 private:
  IDispatch* m_object;
};

class ForeignPageContext final : public IPageContext {
 public:
  explicit ForeignPageContext(IDispatch* page) : m_page(page) {}
  String ServerVariable(const String& name) const override;
  String QueryString() const override;

 private:
  ForeignObject m_page;
};

// The run time's error object, filled from the caller's; after the call, Clear is passed on.
class ErrObjectHolder final : public Object {
 public:
  explicit ErrObjectHolder(IDispatch* err);
  ErrObject& Err() { return m_err; }
  // Clears the caller's object when the library cleared its copy.
  void WriteBack() const;

 private:
  ForeignObject m_foreign;
  ErrObject m_err;
};

// Copies a dictionary the library filled into the caller's: RemoveAll, then Add for each pair.
void MirrorDictionary(const Dictionary& filled, IUnknown* target);

}  // namespace quiv::server

#endif
