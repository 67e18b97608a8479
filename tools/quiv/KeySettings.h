// KeySettings: the options that make a session key, shared by enc, dec, wrap and export.
//   -pass SOURCE -passform text|hex   derive the key from a pass phrase (PassPhrase)
//   -alg rc2|rc4|des|3des|3des112   the cipher (default rc2, the library's default)
//   -keylen BITS                    0 or absent: the provider's default length
//   -hash md5|sha1|md2|md4          the hash that derives the key (default md5)
//   -mode cbc|ecb|cfb, -iv HEX      the block cipher's mode and IV (default cbc, zero IV)
//   -key FILE -container NAME       a SIMPLEBLOB wrapped for the container's exchange key,
//                                   instead of a pass phrase (-machine: the machine store)
// The derivation is the library's own (CSessionKey::GenerateSessionKey): the phrase's UTF-16LE
// code units and a terminating NUL are hashed, the key is taken from the hash, never salted.
#ifndef QUIV_TOOLS_QUIV_KEYSETTINGS_H
#define QUIV_TOOLS_QUIV_KEYSETTINGS_H

#include <cstdint>
#include <string>
#include <vector>

#include "Options.h"
#include "Session.h"

namespace quiv::cli {

class KeySettings final {
 public:
  // The option names, for the subcommands' specs.
  static const std::vector<std::string>& ValuedOptions();

  // The algorithm and hash ids of the short names (UsageError for others).
  static int32_t CipherId(const std::string& name);
  static int32_t HashId(const std::string& name);

  // Makes the session key the options ask for: from -pass, or unwrapped from -key. The session
  // must be open (a container one for -key). UsageError when neither or both are given.
  static Ref<CSessionKey> Make(Session& session, const Options& options);
  // Only the pass-phrase form (for wrap and export, where -key makes no sense).
  static Ref<CSessionKey> FromPassPhrase(Session& session, const Options& options);
  // A random key of the chosen algorithm and length (wrap without -pass).
  static Ref<CSessionKey> Random(Session& session, const Options& options);
  // Sets -mode and -iv on the held key (after every generation or import, as the key's own
  // parameters start from the provider's defaults).
  static void ApplyModeAndIv(Ref<CSessionKey>& key, const Options& options);

  // The held key's bytes, in hex. The library has no call that hands out a session key in
  // clear, so the key is wrapped (SIMPLEBLOB) for a public key whose exponent is 1: that
  // "encryption" leaves the PKCS#1 block as it is, and the key bytes are read from its end.
  // Uses the session's exchange key pair object (its key is replaced).
  static std::string RevealKey(Session& session, Ref<CSessionKey>& key);

 private:
  static void Settle(Ref<CSessionKey>& key, const Options& options);
};

}  // namespace quiv::cli

#endif
