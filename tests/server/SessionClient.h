// SessionClient: a provider session opened entirely through the automation surface (create by
// program id, LoadProvider by name on the Enhanced provider's default container), with its
// working objects fetched by name, for the automation tests. TerminateAll runs at the end.
#ifndef QUIV_TESTS_SERVER_SESSIONCLIENT_H
#define QUIV_TESTS_SERVER_SESSIONCLIENT_H

#include <gtest/gtest.h>

#include <string>

#include "server/DispatchClient.h"
#include "server/DispatchObject.h"
#include "server/quiv_server.h"
#include "support/TempKeyStore.h"
#include "support/TempRegistry.h"

namespace quiv::test {

// The object a factory method hands out through its by-reference output.
inline Disp Fetch(IDispatch* provider, const std::u16string& method) {
  Var slot;
  Outcome out;
  Call(out, provider, method, {Ref(slot.v)});
  EXPECT_EQ(out.hr, S_OK);
  EXPECT_TRUE(IsTrue(out.result.v)) << std::string(method.begin(), method.end());
  if (slot.v.vt != VT_DISPATCH || slot.v.pdispVal == nullptr) return Disp();
  slot.v.pdispVal->lpVtbl->AddRef(slot.v.pdispVal);
  return Disp(slot.v.pdispVal);
}

class SessionClient {
 public:
  SessionClient() {
    EXPECT_EQ(QuivCreateObject(u"QUIV.CProvider", provider.out()), S_OK);
    Outcome type;
    Call(type, provider.get(), u"SetProviderTypeID", {I4(1)});
    Outcome name;
    Call(name, provider.get(), u"SetProviderName",
         {Str(u"Microsoft Enhanced Cryptographic Provider v1.0")});
    Outcome load;
    Call(load, provider.get(), u"LoadProvider");
    EXPECT_TRUE(IsTrue(load.result.v));
  }
  ~SessionClient() {
    Outcome done;
    Call(done, provider.get(), u"TerminateAll");
  }
  SessionClient(const SessionClient&) = delete;
  SessionClient& operator=(const SessionClient&) = delete;

  Disp Object(const std::u16string& method) { return Fetch(provider.get(), method); }

  TempKeyStore store;
  TempRegistry registry;  // creation by name never reads the registry of the user running tests
  Disp provider;
};

}  // namespace quiv::test

#endif
