#include "server/VariantTypes.h"

namespace quiv::server {

namespace {
constexpr VARTYPE kUnusedType = 15;
}

bool IsValidVariantType(VARTYPE vt) {
  const VARTYPE extra = vt & ~VT_TYPEMASK;
  const VARTYPE base = vt & VT_TYPEMASK;
  if (extra & (VT_VECTOR | VT_RESERVED)) return false;
  if (base >= VT_VOID || base == kUnusedType) return false;
  if ((extra & (VT_BYREF | VT_ARRAY)) && base <= VT_NULL) return false;
  return true;
}

size_t PlainValueSize(VARTYPE base) {
  switch (base) {
    case VT_I1:
    case VT_UI1:
      return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR:
      return 4;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
      return 8;
    default:
      return 0;
  }
}

}  // namespace quiv::server
