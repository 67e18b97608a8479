// Session: one provider session of the library for one subcommand. It makes the CProvider,
// chooses the provider by its short name, opens either a verify-only context (no key container
// touched: enc, dec, dgst, rand, algs, verify with a public key file) or a key container, and
// hands out the provider's working objects. The destructor ends the session with TerminateAll.
//
// Every failure of the library is turned into a CommandFailure carrying the failing object's
// error record (its assembled one-line message), so the command prints exactly what the record
// says.
#ifndef QUIV_TOOLS_QUIV_SESSION_H
#define QUIV_TOOLS_QUIV_SESSION_H

#include <string>

#include "Options.h"
#include "UsageError.h"
#include "automation/Ref.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::cli {

// The failing object's record as one line: "<what>: <assembled message>".
template <class T>
[[noreturn]] void Fail(const Ref<T>& object, const std::string& what) {
  std::string record;
  if (object && object->m_oLastError) record = object->m_oLastError->LastError().ToUtf8();
  throw CommandFailure(record.empty() ? what : what + ": " + record);
}

// True when the container object's last failure was listing a store that holds no container.
bool EmptyStore(const Ref<CContainer>& container);

class Session final {
 public:
  // "base", "enhanced" or "strong". The library's sessions run on the Base and Enhanced
  // providers; "strong" runs on Enhanced, whose keys, blobs and ciphertexts are the Strong
  // provider's for every key this command makes (unsalted keys; the two differ only in salt).
  explicit Session(const std::string& provider = "enhanced");
  // The provider the -provider option names (base, enhanced or strong; default enhanced).
  explicit Session(const Options& options);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // A context without a container: nothing is read from or written to the key store.
  void OpenVerifyContext(bool machine = false);
  // The named container (the default container, named after the login, when empty) of the
  // user's or the machine's store.
  void OpenContainer(const std::string& name, bool machine);
  // The same, creating the container first when `create` is set and it does not exist; true
  // when it was created here.
  bool OpenContainer(const std::string& name, bool machine, bool create);
  // Deletes the container this session created, after a failure (nothing half-made is left).
  void DeleteContainer(const std::string& name, bool machine);
  // The key pair object of a role ("exchange" or "signature").
  Ref<CRSAKeyPair> Pair(const std::string& role);

  Ref<CProvider>& Provider() { return m_oProvider; }
  Ref<CMessagetext> Message();
  Ref<CSessionKey> SessionKey();
  Ref<CRSAKeyPair> ExchangePair();
  Ref<CRSAKeyPair> SignaturePair();
  Ref<CHashValue> HashValue();
  Ref<CContainer> Container();

 private:
  Ref<CProvider> m_oProvider;
};

}  // namespace quiv::cli

#endif
