// Which VARTYPEs a VARIANT may carry here, and the size of the scalar a by-reference variant
// points at. Shared by the variant functions and the coercions.
#ifndef QUIV_SERVER_VARIANTTYPES_H
#define QUIV_SERVER_VARIANTTYPES_H

#include <cstddef>

#include "server/quiv_com.h"

namespace quiv::server {

// The platform's rule: a base type below VT_VOID other than 15, optionally with VT_BYREF and/or
// VT_ARRAY (which need a base type above VT_NULL); VT_VECTOR and VT_RESERVED are never valid in
// a VARIANT. Records (VT_RECORD) are not supported and count as invalid.
bool IsValidVariantType(VARTYPE vt);

// Bytes of the plain value of `base` (VT_I2 -> 2, VT_R8 -> 8, ...); 0 for strings, objects,
// arrays, variants and decimals, which are not copied as plain bytes.
size_t PlainValueSize(VARTYPE base);

}  // namespace quiv::server

#endif
