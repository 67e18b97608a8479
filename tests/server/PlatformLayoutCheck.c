/* Compiled only for the 64-bit Windows target against the platform's own headers (see
 * check_platform_layout.sh): the expected sizes, offsets and constants are the platform's. */
#include <windows.h>
/* windows.h leaves these out. */
#include <oaidl.h>
#include <olectl.h>
#include <stddef.h>

#include "server/ComLayoutFields.h"

#define QUIV_CHECK_SIZE(type, size) _Static_assert(sizeof(type) == (size), "sizeof " #type);
#define QUIV_CHECK_OFFSET(type, member, offset) \
  _Static_assert(offsetof(type, member) == (offset), #type "." #member);
#define QUIV_CHECK_HRESULT(name, value) _Static_assert((name) == (HRESULT)(value), #name);
#define QUIV_CHECK_CONSTANT(name, value) _Static_assert((name) == (value), #name);
QUIV_COM_SIZES(QUIV_CHECK_SIZE)
QUIV_COM_OFFSETS(QUIV_CHECK_OFFSET)
QUIV_COM_HRESULTS(QUIV_CHECK_HRESULT)
QUIV_COM_CONSTANTS(QUIV_CHECK_CONSTANT)
