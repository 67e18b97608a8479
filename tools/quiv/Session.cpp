#include "Session.h"

#include "automation/String.h"
#include "provider/ProviderEnums.h"

namespace quiv::cli {

bool EmptyStore(const Ref<CContainer>& container) {
  // The provider's enumeration of an empty store ends at once with ERROR_NO_MORE_ITEMS, which
  // the container object reports as a failure to list.
  constexpr double kNoMoreItems = 259;
  return container->m_oLastError && container->m_oLastError->m_dblErrLastDLLError == kNoMoreItems;
}

Session::Session(const std::string& provider) : m_oProvider(CProvider::Create()) {
  const CConstQUIV c;
  const String name = provider == "base" ? c.MS_DEF_PROV() : c.MS_ENHANCED_PROV();
  if (!m_oProvider->SetProviderTypeID(c.PROV_RSA_FULL()) || !m_oProvider->SetProviderName(name)) {
    Fail(m_oProvider, "cannot choose the provider");
  }
}

Session::Session(const Options& options)
    : Session(options.Choice("provider", {"base", "enhanced", "strong"}, "enhanced")) {}

Session::~Session() {
  m_oProvider->TerminateAll();
}

void Session::OpenVerifyContext(bool machine) {
  const String none;
  if (!m_oProvider->LoadProvider(none, machine ? MULTI_USER : SINGLE_USER, PUBLIC_KEYS_ONLY)) {
    Fail(m_oProvider, "cannot open the provider");
  }
}

void Session::OpenContainer(const std::string& name, bool machine) {
  const String container = String::FromUtf8(name);
  const int32_t access = machine ? MULTI_USER : SINGLE_USER;
  if (!m_oProvider->LoadProvider(container, access, ALL_KEYS)) {
    // The provider's record says only that loading failed; the container's says why.
    Ref<CContainer> holder;
    if (m_oProvider->GetContainerObject(holder))
      Fail(holder, "cannot open container '" + name + "'");
    Fail(m_oProvider, "cannot open container '" + name + "'");
  }
}

bool Session::OpenContainer(const std::string& name, bool machine, bool create) {
  if (!create) {
    OpenContainer(name, machine);
    return false;
  }
  OpenVerifyContext(machine);
  Ref<CContainer> container = Container();
  bool exists = false;
  const String wanted = String::FromUtf8(name);
  if (!container->CheckForContainer(wanted, exists) && !EmptyStore(container)) {
    Fail(container, "cannot list the containers");
  }
  if (exists) {
    OpenContainer(name, machine);
    return false;
  }
  if (!container->NewContainer(wanted, machine ? MULTI_USER : SINGLE_USER)) {
    Fail(container, "cannot create container '" + name + "'");
  }
  return true;
}

void Session::DeleteContainer(const std::string& name, bool machine) {
  OpenVerifyContext(machine);
  Ref<CContainer> container = Container();
  container->DeleteContainer(String::FromUtf8(name));
}

Ref<CRSAKeyPair> Session::Pair(const std::string& role) {
  return role == "signature" ? SignaturePair() : ExchangePair();
}

Ref<CMessagetext> Session::Message() {
  Ref<CMessagetext> message;
  if (!m_oProvider->GetMessageTextObject(message)) Fail(m_oProvider, "no message object");
  return message;
}

Ref<CSessionKey> Session::SessionKey() {
  Ref<CSessionKey> key;
  if (!m_oProvider->GetSessionKeyObject(key)) Fail(m_oProvider, "no session key object");
  return key;
}

Ref<CRSAKeyPair> Session::ExchangePair() {
  Ref<CRSAKeyPair> pair;
  if (!m_oProvider->GetExchangeKeyPairObject(pair))
    Fail(m_oProvider, "no exchange key pair object");
  return pair;
}

Ref<CRSAKeyPair> Session::SignaturePair() {
  Ref<CRSAKeyPair> pair;
  if (!m_oProvider->GetSignatureKeyPairObject(pair)) {
    Fail(m_oProvider, "no signature key pair object");
  }
  return pair;
}

Ref<CHashValue> Session::HashValue() {
  Ref<CHashValue> hash;
  if (!m_oProvider->GetHashValueObject(hash)) Fail(m_oProvider, "no hash object");
  return hash;
}

Ref<CContainer> Session::Container() {
  Ref<CContainer> container;
  if (!m_oProvider->GetContainerObject(container)) Fail(m_oProvider, "no container object");
  return container;
}

}  // namespace quiv::cli
