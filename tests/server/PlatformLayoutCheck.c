/* Compiled only for the 64-bit Windows target against the platform's own headers (see
 * check_platform_layout.sh): the expected sizes, offsets and constants are the platform's. */
#include <assert.h>
#include <stddef.h>
#include <windows.h>

/* Automation types and the self-registration codes, which windows.h leaves out. */
#include <oaidl.h>
#include <olectl.h>

#include "server/ComLayoutFields.h"

QUIV_COM_CHECK_ALL()
