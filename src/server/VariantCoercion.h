// The automation run time's coercions between variant types, behind VariantChangeType.
//
// Supported: among VT_EMPTY, VT_I1, VT_UI1, VT_I2, VT_UI2, VT_I4, VT_UI4, VT_INT, VT_UINT, VT_I8,
// VT_UI8, VT_R4, VT_R8, VT_BOOL and VT_BSTR; VT_DISPATCH and VT_UNKNOWN to each other (through
// QueryInterface) and, through the object's default member, to any of the former; VT_ERROR and
// VT_NULL to themselves; VT_BSTR to and from VT_UI1|VT_ARRAY (the string's bytes); an array to
// its own type. Anything else is DISP_E_TYPEMISMATCH.
//
// The rules are the run time's: a double becomes an integer rounded half to even; a value out of
// the target's range is DISP_E_OVERFLOW; true is -1 (and wraps to the all-ones pattern of an
// unsigned target); a string is read up to its first NUL as NumberText.h says, or as
// "True"/"False" (any case) for a boolean; a boolean becomes "-1"/"0", or "True"/"False" with
// VARIANT_ALPHABOOL or VARIANT_LOCALBOOL; VT_EMPTY is 0, false or the empty string.
#ifndef QUIV_SERVER_VARIANTCOERCION_H
#define QUIV_SERVER_VARIANTCOERCION_H

#include "server/quiv_com.h"

namespace quiv::server {

// Coerces the by-value `from` (a valid type, not VT_BYREF) to `vt` into `to`, which receives a
// value it owns; `to` is written only on success. With VARIANT_NOVALUEPROP an object is not
// asked for its default member. The default member is read with Invoke(DISPID_VALUE,
// DISPATCH_PROPERTYGET | DISPATCH_METHOD, no arguments).
HRESULT CoerceVariant(const VARIANT& from, VARTYPE vt, USHORT flags, LCID lcid, VARIANT* to);

}  // namespace quiv::server

#endif
