#include "server/TypeLibrary.h"

namespace quiv::server {

HRESULT InterfaceTypeInfo(const ClassTable& /*table*/, ITypeInfo** out) {
  *out = nullptr;
  return E_NOTIMPL;
}

HRESULT LibraryTypeLib(ITypeLib** out) {
  *out = nullptr;
  return E_NOTIMPL;
}

}  // namespace quiv::server
