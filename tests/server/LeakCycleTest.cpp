// 10,000 sessions through the entry points alone: create a provider by program id, use it and
// its working objects by name, TerminateAll, release everything. Afterwards nothing of the
// library is alive (DllCanUnloadNow) and, under LeakSanitizer, nothing is left allocated.
#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__) && __has_include(<sanitizer/lsan_interface.h>)
#include <sanitizer/lsan_interface.h>
#define QUIV_HAVE_LSAN 1
#endif

#include "server/DispatchClient.h"
#include "server/DispatchObject.h"
#include "server/quiv_server.h"
#include "support/QuietLog.h"
#include "support/TempKeyStore.h"
#include "support/TempRegistry.h"

namespace quiv::test {
namespace {

const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new QuietEnvironment);

constexpr int kCycles = 10000;
constexpr int32_t kPublicKeysOnly = static_cast<int32_t>(0xF0000000u);

Disp Fetched(IDispatch* provider, const char16_t* method) {
  Var slot;
  Outcome out;
  Call(out, provider, method, {Ref(slot.v)});
  if (slot.v.vt != VT_DISPATCH || slot.v.pdispVal == nullptr) return Disp();
  slot.v.pdispVal->lpVtbl->AddRef(slot.v.pdispVal);
  return Disp(slot.v.pdispVal);
}

// One session; false when a step failed.
bool Cycle(int i) {
  Disp provider;
  if (QuivCreateObject(u"QUIV.CProvider", provider.out()) != S_OK) return false;
  Outcome type;
  Call(type, provider.get(), u"SetProviderTypeID", {I4(1)});
  Outcome load;  // a verify-only context: no container file is touched
  Call(load, provider.get(), u"LoadProvider", {Str(u""), I4(0), I4(kPublicKeysOnly)});
  Disp message = Fetched(provider.get(), u"GetMessageTextObject");
  Disp key = Fetched(provider.get(), u"GetSessionKeyObject");
  Disp hash = Fetched(provider.get(), u"GetHashValueObject");
  if (!message || !key || !hash) return false;
  Outcome text;
  Call(text, message.get(), u"LoadMessageText",
       {Str(u"message " + std::u16string(1, u'0' + i % 10)), I4(3)});
  Outcome generate;
  Call(generate, key.get(), u"GenerateSessionKey");
  Outcome encrypt;
  Call(encrypt, key.get(), u"Encrypt", {Obj(message.get())});
  Outcome hashed;
  Call(hashed, hash.get(), u"Hash", {Obj(message.get())});
  Outcome record;  // the record a failure loads: hashing a session key is refused here
  Call(record, hash.get(), u"Hash", {Obj(message.get()), Obj(key.get())});
  Outcome done;
  Call(done, provider.get(), u"TerminateAll");
  return IsTrue(load.result.v) && IsTrue(encrypt.result.v) && IsTrue(hashed.result.v) &&
         !IsTrue(record.result.v) && IsTrue(done.result.v);
}

TEST(LeakCycleTest, TenThousandSessionsLeaveNothingAllocated) {
  TempKeyStore store;
  TempRegistry registry;
  for (int i = 0; i < kCycles; ++i) {
    ASSERT_TRUE(Cycle(i)) << "cycle " << i;
  }
  EXPECT_EQ(server::DispatchObject::LiveCount(), 0u);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
#ifdef QUIV_HAVE_LSAN
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}

// What a caller still holds after TerminateAll stays usable (emptied) until it lets go; then
// nothing is left.
TEST(LeakCycleTest, ObjectsHeldAfterTerminateAllAreFreedWhenReleased) {
  TempKeyStore store;
  TempRegistry registry;
  Disp provider;
  ASSERT_EQ(QuivCreateObject(u"QUIV.CProvider", provider.out()), S_OK);
  Disp hash = Fetched(provider.get(), u"GetHashValueObject");
  ASSERT_TRUE(hash);
  Outcome done;
  Call(done, provider.get(), u"TerminateAll");
  EXPECT_TRUE(IsTrue(done.result.v));
  provider.Reset();
  Outcome algorithm;
  Call(algorithm, hash.get(), u"SetHashAlgorithmID", {I4(32772)});
  EXPECT_EQ(algorithm.hr, S_OK);
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  hash.Reset();
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
#ifdef QUIV_HAVE_LSAN
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}

}  // namespace
}  // namespace quiv::test
