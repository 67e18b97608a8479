// PublicKeyInput: a public RSA key for verify and wrap, from a file (-pubin: PUBLICKEYBLOB,
// hex, PEM or DER, detected from the content) or from an open container, loaded into the
// session's key pair object of the right kind.
#ifndef QUIV_TOOLS_QUIV_PUBLICKEYINPUT_H
#define QUIV_TOOLS_QUIV_PUBLICKEYINPUT_H

#include <cstdint>
#include <string>

#include "Session.h"

namespace quiv::cli {

class PublicKeyInput final {
 public:
  // The key of `path` in the pair object that matches `algId` (CALG_RSA_KEYX: the exchange
  // pair, CALG_RSA_SIGN: the signature pair). A blob naming the other algorithm is relabelled:
  // the key itself is the same.
  static Ref<CRSAKeyPair> FromFile(Session& session, const std::string& path, uint32_t algId);
  // The open container's pair of `role` ("exchange" or "signature"), full pair included.
  static Ref<CRSAKeyPair> FromContainer(Session& session, const std::string& role);
};

}  // namespace quiv::cli

#endif
