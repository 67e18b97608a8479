// The demo's parts, one per subject; each prints what it does and what came back.
#ifndef QUIV_EXAMPLES_DEMOPARTS_H
#define QUIV_EXAMPLES_DEMOPARTS_H

namespace quiv::demo {

// A provider session through the library's objects: provider facts, key containers, the
// algorithm list and a message round trip.
void ShowProviderSession();

// A key from a pass phrase encrypting and decrypting; then the typical request between a sender
// and a recipient: encrypt, wrap the key, sign; verify, unwrap, decrypt.
void ShowSessionKeys();
// A session driven late-bound through IDispatch (LateBoundDemo.cpp).
void ShowLateBound();

}  // namespace quiv::demo

#endif
