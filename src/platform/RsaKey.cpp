#include "platform/RsaKey.h"

// Implementation follows in the next commits; nothing is defined yet.
