#include "server/ForeignDispatch.h"

#include <vector>

#include "server/VariantBridge.h"

namespace quiv::server {

ForeignObject::ForeignObject(IDispatch* object) : m_object(object) {}

ForeignObject::~ForeignObject() {
  if (m_object != nullptr) m_object->lpVtbl->Release(m_object);
}

Variant ForeignObject::Call(const char16_t* name, std::initializer_list<Variant> args) const {
  if (m_object == nullptr) return Variant();
  DISPID id = DISPID_UNKNOWN;
  LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
  if (FAILED(m_object->lpVtbl->GetIDsOfNames(m_object, &IID_NULL, names, 1, 0, &id))) {
    return Variant();
  }
  // Arguments go in reverse order.
  std::vector<VARIANT> argv(args.size());
  size_t k = args.size();
  for (const Variant& arg : args) ValueToVariant(arg, argv[--k]);
  DISPPARAMS params{argv.data(), nullptr, static_cast<UINT>(argv.size()), 0};
  VARIANT result;
  VariantInit(&result);
  EXCEPINFO info{};
  UINT argErr = 0;
  const HRESULT hr =
      m_object->lpVtbl->Invoke(m_object, id, &IID_NULL, 0, DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                               &params, &result, &info, &argErr);
  for (VARIANT& arg : argv) VariantClear(&arg);
  SysFreeString(info.bstrSource);
  SysFreeString(info.bstrDescription);
  SysFreeString(info.bstrHelpFile);
  Variant value;
  if (SUCCEEDED(hr) && FAILED(VariantToValue(result, value))) value = Variant();
  VariantClear(&result);
  return value;
}

namespace {

String TextOf(const Variant& value) {
  if (value.IsEmpty() || value.IsNothing() || value.IsObject()) return String();
  return value.TextForm();
}

}  // namespace

String ForeignPageContext::ServerVariable(const String& name) const {
  return TextOf(m_page.Call(u"ServerVariable", {Variant(name)}));
}

String ForeignPageContext::QueryString() const {
  return TextOf(m_page.Call(u"QueryString"));
}

ErrObjectHolder::ErrObjectHolder(IDispatch* err) : m_foreign(err) {
  const Variant number = m_foreign.Call(u"Number");
  if (number.IsNumber()) m_err.SetNumber(number.ToLong());
  m_err.SetSource(TextOf(m_foreign.Call(u"Source")));
  m_err.SetDescription(TextOf(m_foreign.Call(u"Description")));
  const Variant lastDll = m_foreign.Call(u"LastDllError");
  if (lastDll.IsNumber()) m_err.SetLastDllError(static_cast<uint32_t>(lastDll.ToDouble()));
}

void ErrObjectHolder::WriteBack() const {
  if (m_err.Number() == 0) m_foreign.Call(u"Clear");
}

void MirrorDictionary(const Dictionary& filled, IUnknown* target) {
  if (target == nullptr) return;
  void* itf = nullptr;
  if (FAILED(target->lpVtbl->QueryInterface(target, &IID_IDispatch, &itf))) return;
  const ForeignObject dictionary(static_cast<IDispatch*>(itf));
  dictionary.Call(u"RemoveAll");
  const std::vector<Variant> keys = filled.Keys();
  const std::vector<Variant> items = filled.Items();
  for (size_t i = 0; i < keys.size(); ++i) dictionary.Call(u"Add", {keys[i], items[i]});
}

}  // namespace quiv::server
