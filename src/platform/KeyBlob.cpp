#include "platform/KeyBlob.h"

// Implementation follows in the next commits; nothing is defined yet.
