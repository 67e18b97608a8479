// InternalAccess: the test-only way to the library's internal routines (the provider's context
// and parameter readers, the working objects' SetProvider and Terminate, the key handles ...).
// The classes keep those routines private and name InternalAccess a friend, so that callers of
// the installed headers see the public members only; this header is not installed.
//
//   Internal(provider).SetHasContext(true);
//   Internal(pair).GetKeyPairHandle(handle);
//
// Internal(x) takes an object or a Ref and returns a view whose members forward to the object's
// own routine of the same name, with the same arguments and result.
#ifndef QUIV_TESTS_SUPPORT_INTERNALACCESS_H
#define QUIV_TESTS_SUPPORT_INTERNALACCESS_H

#include <concepts>
#include <utility>

#include "automation/Object.h"
#include "automation/Ref.h"

namespace quiv {

struct InternalAccess {
  template <class T>
  class View {
   public:
    explicit View(T& object) : m_object(object) {}

#define QUIV_INTERNAL_FORWARD(Name)                    \
  template <class... Args>                             \
  decltype(auto) Name(Args&&... args) const {          \
    return m_object.Name(std::forward<Args>(args)...); \
  }                                                    \
  static_assert(true, "a forwarder ends with a semicolon at its use")

    // CProvider
    QUIV_INTERNAL_FORWARD(AcquireContext);
    QUIV_INTERNAL_FORWARD(GetProvParam);
    QUIV_INTERNAL_FORWARD(GetProvParamList);
    QUIV_INTERNAL_FORWARD(ContextHandle);
    QUIV_INTERNAL_FORWARD(HasContext);
    QUIV_INTERNAL_FORWARD(SetHasContext);
    QUIV_INTERNAL_FORWARD(ProviderName);
    QUIV_INTERNAL_FORWARD(ProviderType);
    QUIV_INTERNAL_FORWARD(WinVer);
    // Every working object
    QUIV_INTERNAL_FORWARD(SetProvider);
    QUIV_INTERNAL_FORWARD(Terminate);
    // CAlgInfo
    QUIV_INTERNAL_FORWARD(SetAlgorithms);
    // CMessagetext
    QUIV_INTERNAL_FORWARD(GetMessageText);
    QUIV_INTERNAL_FORWARD(ExchangeMessageText);
    // CSessionKey
    QUIV_INTERNAL_FORWARD(GetKeyHandle);
    QUIV_INTERNAL_FORWARD(GetKeyParam);
    QUIV_INTERNAL_FORWARD(GetRC2KeyLength);
    QUIV_INTERNAL_FORWARD(IfRC2ChangeLength);
    QUIV_INTERNAL_FORWARD(ChangeRC2KeyLength);
    QUIV_INTERNAL_FORWARD(WorkingArray);
    // CRSAKeyPair
    QUIV_INTERNAL_FORWARD(SetExOrSigKeyObject);
    QUIV_INTERNAL_FORWARD(GetKeyPairContents);
    QUIV_INTERNAL_FORWARD(GetKeyPairHandle);
    QUIV_INTERNAL_FORWARD(GetPublicKeyHandle);
    QUIV_INTERNAL_FORWARD(SetDefaultKeySettings);
    // CHashValue
    QUIV_INTERNAL_FORWARD(GetHashParam);
    QUIV_INTERNAL_FORWARD(GetHashHandle);

#undef QUIV_INTERNAL_FORWARD

   private:
    T& m_object;
  };

  // The provider's static helpers.
  template <class Provider>
  static auto SystemVersionCode() {
    return Provider::GetSystemVersionCode();
  }
  template <class Provider, class Bytes>
  static auto AnsiTextBeforeZero(const Bytes& i_abText) {
    return Provider::AnsiTextBeforeZero(i_abText);
  }
};

template <class T>
requires std::derived_from<T, Object> InternalAccess::View<T> Internal(T& object) {
  return InternalAccess::View<T>(object);
}

template <class T>
InternalAccess::View<T> Internal(const Ref<T>& object) {
  return InternalAccess::View<T>(*object);
}

}  // namespace quiv

#endif
