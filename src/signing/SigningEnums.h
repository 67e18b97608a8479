// SigningEnums: the codes the key-pair object answers when asked what it holds. The provider's
// session-key transport and the key pair's own routines switch on them.
#ifndef QUIV_SIGNING_SIGNINGENUMS_H
#define QUIV_SIGNING_SIGNINGENUMS_H

#include <cstdint>

namespace quiv {

// What a CRSAKeyPair holds (16-bit values, as the automation interface publishes them).
enum KEYPAIR_OBJECT_CONTAINS : int16_t {
  KEY_PAIR = 1,    // a key-pair handle: private and public part
  PUBLIC_KEY = 2,  // a public-key handle only
  NOKEYS = 3,      // no key at all
};

}  // namespace quiv

#endif
