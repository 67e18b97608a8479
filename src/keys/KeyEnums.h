// KeyEnums: the codes callers pass to a session key's Encrypt and Decrypt to say how much of a
// message one call carries. The platform's Final flag is the code squared, so ENTIRE (-1) and
// FINAL_SECTION (1) both end the message and NOT_FINAL_SECTION (0) leaves the key's chaining
// state open for the next section.
#ifndef QUIV_KEYS_KEYENUMS_H
#define QUIV_KEYS_KEYENUMS_H

#include <cstdint>

namespace quiv {

enum AMOUNT : int32_t {
  ENTIRE = -1,            // the whole message in one call
  NOT_FINAL_SECTION = 0,  // a section followed by more
  FINAL_SECTION = 1,      // the last section
};

}  // namespace quiv

#endif
