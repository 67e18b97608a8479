// The library's internal routines (the provider's context and parameter readers, the working
// objects' SetProvider and Terminate, the key and hash handles ...) are out of a caller's reach:
// each class keeps them private for the classes of the library that call them. Checked at
// compile time, each beside a public member of the same class that a caller does reach.
#include <gtest/gtest.h>

#include <cstdint>

#include "automation/Dictionary.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"
#include "platform/wincrypt.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"

namespace quiv {
namespace {

// CProvider
template <class P>
concept ProviderInternals = requires(P& p, String s, int32_t l, HCRYPTPROV h) {
  p.AcquireContext(s, s, l, l, h);
}
|| requires(P& p, Variant v) {
  p.GetProvParam(1, v);
}
|| requires(P& p, Dictionary d) {
  p.GetProvParamList(1, d);
}
|| requires(P& p) {
  p.ContextHandle();
}
|| requires(P& p) {
  p.HasContext();
}
|| requires(P& p) {
  p.SetHasContext(true);
}
|| requires(P& p) {
  p.ProviderName();
}
|| requires(P& p) {
  p.ProviderType();
}
|| requires(P& p) {
  p.WinVer();
}
|| requires {
  P::GetSystemVersionCode();
};
template <class P>
concept ProviderPublic = requires(P& p, String s) {
  p.LoadProvider();
  p.GetProviderName(s);
  p.TerminateAll();
};
static_assert(ProviderPublic<CProvider> && !ProviderInternals<CProvider>);

// Every working object
template <class T>
concept TiedInternals = requires(T& t, Ref<CProvider> p) {
  t.SetProvider(p);
}
|| requires(T& t) {
  t.Terminate();
};
static_assert(!TiedInternals<CContainer> && !TiedInternals<CMessagetext> &&
              !TiedInternals<CSessionKey> && !TiedInternals<CRSAKeyPair> &&
              !TiedInternals<CHashValue>);

template <class A>
concept AlgInfoInternals = requires(A& a, Dictionary d) {
  a.SetAlgorithms(d);
};
static_assert(!AlgInfoInternals<CAlgInfo> && requires(CAlgInfo & a) { a.FilterAlgorithms(0); });

template <class M>
concept MessageInternals = requires(M& m, ByteArray b) {
  m.GetMessageText(b, size_t{8});
}
|| requires(M& m, ByteArray b) {
  m.ExchangeMessageText(b);
};
static_assert(!MessageInternals<CMessagetext> &&
              requires(CMessagetext & m, ByteArray b) { m.GetMessageText(b); });

template <class K>
concept SessionKeyInternals = requires(K& k, HCRYPTKEY h) {
  k.GetKeyHandle(h);
}
|| requires(K& k, Variant v) {
  k.GetKeyParam(1, v);
}
|| requires(K& k, int32_t l) {
  k.GetRC2KeyLength(l);
}
|| requires(K& k) {
  k.IfRC2ChangeLength();
}
|| requires(K& k) {
  k.ChangeRC2KeyLength(40);
};
static_assert(!SessionKeyInternals<CSessionKey> &&
              requires(CSessionKey & k, int32_t l) { k.GetKeyLength(l); });

template <class R>
concept KeyPairInternals = requires(R& r) {
  r.SetExOrSigKeyObject(int16_t{1});
}
|| requires(R& r, int16_t n) {
  r.GetKeyPairContents(n);
}
|| requires(R& r, HCRYPTKEY h) {
  r.GetKeyPairHandle(h);
}
|| requires(R& r, HCRYPTKEY h) {
  r.GetPublicKeyHandle(h);
}
|| requires(R& r) {
  r.SetDefaultKeySettings();
};
static_assert(!KeyPairInternals<CRSAKeyPair> &&
              requires(CRSAKeyPair & r, int32_t l) { r.GetModulus(l); });

template <class H>
concept HashInternals = requires(H& h, HCRYPTHASH x, Variant v) {
  h.GetHashParam(x, 1, v);
}
|| requires(H& h, HCRYPTHASH x) {
  h.GetHashHandle(x);
};
static_assert(!HashInternals<CHashValue> && requires(CHashValue & h) { h.Clear(); });

TEST(InternalRoutinesTest, AreOutOfACallersReach) {
  SUCCEED() << "checked at compile time";
}

}  // namespace
}  // namespace quiv
