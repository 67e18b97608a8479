// VariantBridge: the library's values (String, ByteArray, Variant, objects) to and from the
// platform's VARIANT, BSTR and SAFEARRAY, and the coercion of one Invoke argument to the type
// of the parameter it is passed for, as the automation run time coerces (VariantChangeType:
// numbers, booleans and numeric strings among each other; out-of-range numbers overflow).
#ifndef QUIV_SERVER_VARIANTBRIDGE_H
#define QUIV_SERVER_VARIANTBRIDGE_H

#include "automation/ByteArray.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "server/CallFrame.h"
#include "server/DispatchTable.h"
#include "server/quiv_com.h"

namespace quiv::server {

// The VARIANT type that carries a value of `type`: VT_I2, VT_I4, VT_R8, VT_BOOL, VT_BSTR,
// VT_ARRAY | VT_UI1, VT_VARIANT (any), VT_DISPATCH; VT_EMPTY for no value.
VARTYPE VarTypeOf(AutoType type);

// A BSTR's bytes exactly (an odd byte length keeps its last byte). NULL is the empty string.
String FromBstr(BSTR text);
// A new BSTR the caller frees; nullptr when out of memory.
BSTR ToBstr(const String& text);

// A one-dimensional array of bytes; NULL gives the library's empty array.
ByteArray FromSafeArray(SAFEARRAY* array);
SAFEARRAY* ToSafeArray(const ByteArray& bytes);

// The slot's value in a fresh VARIANT (the caller owns it). Objects are wrapped, so the same
// instance always gives the same IDispatch. E_OUTOFMEMORY, else S_OK.
HRESULT SlotToVariant(const CallFrame::Slot& slot, VARIANT& out);
HRESULT ValueToVariant(const Variant& value, VARIANT& out);
// A VARIANT as a library value, for Variant parameters and results of caller objects.
// DISP_E_TYPEMISMATCH for what the library's values cannot hold.
HRESULT VariantToValue(const VARIANT& in, Variant& out);

// The argument (already dereferenced from VT_BYREF) coerced to the parameter's type into the
// slot. DISP_E_TYPEMISMATCH, DISP_E_OVERFLOW, E_OUTOFMEMORY on failure.
HRESULT CoerceArgument(const VARIANT& arg, const Param& param, CallFrame::Slot& slot);
// The parameter's default (optional and missing) into the slot.
void DefaultArgument(const Param& param, CallFrame::Slot& slot);

// The value a by-reference argument points at, as a VARIANT that borrows it (no ownership).
VARIANT Dereferenced(const VARIANT& arg);
// Stores the slot into what a VT_BYREF argument points at, converting to the caller's type and
// freeing what was there. Unconvertible values leave the caller's variable as it was.
HRESULT WriteBack(const CallFrame::Slot& slot, VARIANT& arg);

}  // namespace quiv::server

#endif
