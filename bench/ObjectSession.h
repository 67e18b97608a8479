// ObjectSession: a provider session on the Enhanced provider with the working objects the object
// benchmarks use (message text, session key, signature pair), opened in the default container
// and terminated with the object. Require turns a failed call into an exception carrying the
// object's error message.
#ifndef QUIV_BENCH_OBJECTSESSION_H
#define QUIV_BENCH_OBJECTSESSION_H

#include <cstdint>
#include <vector>

#include "automation/Ref.h"
#include "data/CMessagetext.h"
#include "errors/CErrHandler.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::bench {

// Throws std::runtime_error("what: <the record's message>") unless ok.
void Require(bool ok, const char* what, const Ref<CErrHandler>& record);

struct ObjectSession {
  Ref<CProvider> provider = CProvider::Create();
  Ref<CMessagetext> message;
  Ref<CSessionKey> key;
  Ref<CRSAKeyPair> signature;

  ObjectSession();
  ~ObjectSession();
  ObjectSession(const ObjectSession&) = delete;
  ObjectSession& operator=(const ObjectSession&) = delete;

  // The session key's bytes as the provider exports them in a PLAINTEXTKEYBLOB.
  std::vector<uint8_t> KeyBytes() const;
};

}  // namespace quiv::bench

#endif
