#include "provider/CContainer.h"

#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"

namespace quiv {

namespace {
using platform::Platform;
}  // namespace

CContainer::~CContainer() = default;

bool CContainer::SetProvider(const Ref<CProvider>& i_oProvider) {
  return Trap(m_oLastError, u"QUIV.CContainer.Set Provider", [&] { m_oProvider = i_oProvider; });
}

void CContainer::Terminate() {
  Trap(m_oLastError, u"QUIV.Container.Class_Terminate", [&] {
    if (!m_oLastError.IsNothing()) m_oLastError.SetNothing();
    if (!m_oProvider.IsNothing()) m_oProvider.SetNothing();
  });
}

bool CContainer::HasContext() const {
  return m_oProvider->HasContext();
}

bool CContainer::DoContainer(const String& i_sContainerName, int32_t i_lAction, int32_t i_lAccess,
                             int32_t i_lKeysAccess) {
  return Trap(m_oLastError, u"QUIV.Container.DoContainer", [&] {
    const CConstQUIV& k = m_oConst;
    // Every code is checked before the provider is touched, so a bad one keeps the old context.
    if (i_lAction != OPEN_CONTAINER && i_lAction != CREATE_CONTAINER &&
        i_lAction != DELETE_CONTAINER) {
      RaiseQuiv(CONTAINER_ERROR_UNKNOWN_CONTAINER_ACTION_SPECIFIED);
    }
    m_lContainerAccess = i_lAccess;
    int32_t flags = i_lAction;
    if (i_lAccess != SINGLE_USER && i_lAccess != MULTI_USER) {
      RaiseQuiv(CONTAINER_ERROR_INVALID_CONTAINER_ACCESS_CODE_SPECIFIED);
    }
    flags |= i_lAccess;
    if (i_lAction != DELETE_CONTAINER) {
      if (i_lKeysAccess != ALL_KEYS && i_lKeysAccess != PUBLIC_KEYS_ONLY) {
        RaiseQuiv(CONTAINER_ERROR_INVALID_CONTAINER_ACCESS_CODE_SPECIFIED);
      }
      flags |= i_lKeysAccess;
    }
    const String providerName = m_oProvider->ProviderName();
    const int32_t providerType = m_oProvider->ProviderType();
    const Variant cleared = m_oProvider->Clear();
    if (!(cleared.GetKind() == Variant::Kind::Boolean && cleared.ToBoolean())) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_RELEASE_CONTEXT);
    }
    HCRYPTPROV handle = m_oProvider->ContextHandle();
    if (!m_oProvider->AcquireContext(i_sContainerName, providerName, providerType, flags, handle)) {
      if (i_lAction == OPEN_CONTAINER) RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_LOAD_CONTAINER);
      if (i_lAction == CREATE_CONTAINER) RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER);
      RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER);
    }
    if (i_lAction == k.CRYPT_DELETEKEYSET()) {
      if (HasContext()) RaiseQuiv(GENERAL_ERROR_SHOULD_NO_LONGER_HAVE_CONTEXT);
    } else if (!HasContext()) {
      RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    }
  });
}

bool CContainer::LoadContainer(const String& i_sContainerName, int32_t i_lContainerAccess,
                               int32_t i_lContainerKeysAccess) {
  return Trap(
      m_oLastError, u"QUIV.CContainer.LoadContainer",
      [&] {
        if (!DoContainer(i_sContainerName, OPEN_CONTAINER, i_lContainerAccess,
                         i_lContainerKeysAccess)) {
          RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_LOAD_CONTAINER);
        }
      },
      [&](CErrHandler& e) { e.AddParam(u"i_sContainerName", i_sContainerName); });
}

bool CContainer::NewContainer(const String& i_sContainerName, int32_t i_lContainerAccess,
                              int32_t i_lContainerKeysAccess) {
  return Trap(
      m_oLastError, u"QUIV.CContainer.NewContainer",
      [&] {
        if (!DoContainer(i_sContainerName, CREATE_CONTAINER, i_lContainerAccess,
                         i_lContainerKeysAccess)) {
          RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"i_sContainerName", i_sContainerName);
        e.AddParam(u"i_lContainerAccess", i_lContainerAccess);
      });
}

bool CContainer::DeleteContainer(const String& i_sContainerName) {
  return Trap(
      m_oLastError, u"QUIV.CContainer.DeleteContainer",
      [&] {
        // The store is the one the last container action used.
        if (!DoContainer(i_sContainerName, m_oConst.CRYPT_DELETEKEYSET(), m_lContainerAccess,
                         ALL_KEYS)) {
          RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER);
        }
      },
      [&](CErrHandler& e) { e.AddParam(u"Container Name", i_sContainerName); });
}

bool CContainer::GetListOfContainers(Dictionary& o_dContainer) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetListOfContainers", [&] {
    Dictionary items;
    if (!HasContext()) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    o_dContainer.RemoveAll();
    if (!m_oProvider->GetProvParamList(m_oConst.PP_ENUMCONTAINERS(), items, 0)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_LIST_OF_PROVIDER_PARAMS);
    }
    const int16_t count = CInt(static_cast<int64_t>(items.Count()));
    for (int16_t i = 0; i < count; ++i) {
      const ByteArray bytes = items.Item(static_cast<int32_t>(i)).ToByteArray();
      o_dContainer.Add(i, CProvider::AnsiTextBeforeZero(bytes));
    }
  });
}

bool CContainer::CheckForContainer(const String& i_sContainerName, bool& o_fContainerExists) {
  return Trap(
      m_oLastError, u"QUIV.CContainer.CheckForContainer",
      [&] {
        if (!HasContext()) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
        Dictionary names;
        if (!GetListOfContainers(names)) {
          RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_GET_LIST_OF_CONTAINERS);
        }
        const String wanted = i_sContainerName.LCase();
        const int16_t count = CInt(static_cast<int64_t>(names.Count()));
        for (int16_t i = 0; i < count; ++i) {
          if (names.Item(i).TextForm().LCase() == wanted) {
            o_fContainerExists = true;
            return;
          }
        }
        o_fContainerExists = false;
      },
      [&](CErrHandler& e) { e.AddParam(u"Container name", i_sContainerName); });
}

bool CContainer::DeleteAllContainers() {
  return Trap(m_oLastError, u"QUIV.CContainer.DeleteAllContainers", [&] {
    if (!HasContext()) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    Dictionary names;
    if (!GetListOfContainers(names)) RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_GET_LIST_OF_CONTAINERS);
    const int16_t count = CInt(static_cast<int64_t>(names.Count()));
    for (int16_t i = 0; i < count; ++i) {
      if (!DeleteContainer(names.Item(i).TextForm())) {
        RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER);
      }
    }
  });
}

bool CContainer::CheckForKeyPair(int32_t i_lKeySpec, bool& o_fKeyPairExists) {
  const bool done = Trap(m_oLastError, u"QUIV.CContainer.CheckForKeyPair", [&] {
    HCRYPTKEY key = 0;
    if (Platform().CryptGetUserKey(m_oProvider->ContextHandle(), static_cast<DWORD>(i_lKeySpec),
                                   &key)) {
      if (!Platform().CryptDestroyKey(key)) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
      o_fKeyPairExists = true;
      return;
    }
    if (LastPlatformError() != static_cast<uint32_t>(m_oConst.NTE_NO_KEY())) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_RSA_KEY_PAIR_HANDLE);
    }
    o_fKeyPairExists = false;
  });
  if (!done) o_fKeyPairExists = false;
  return done;
}

bool CContainer::CheckForExchangeKeyPair(bool& o_fKeyPairExists) {
  return Trap(m_oLastError, u"QUIV.CContainer.CheckForExchangeKeyPair", [&] {
    if (!CheckForKeyPair(m_oConst.AT_KEYEXCHANGE(), o_fKeyPairExists)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_CHECK_WHETHER_RSA_KEY_PAIR_EXISTS);
    }
  });
}

bool CContainer::CheckForSignatureKeyPair(bool& o_fKeyPairExists) {
  return Trap(m_oLastError, u"QUIV.CContainer.CheckForSignatureKeyPair", [&] {
    if (!CheckForKeyPair(m_oConst.AT_SIGNATURE(), o_fKeyPairExists)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_CHECK_WHETHER_RSA_KEY_PAIR_EXISTS);
    }
  });
}

bool CContainer::GetContainerName(String& o_sContainerName) {
  return Trap(m_oLastError, u"QUIV.CContainer.GetContainerName", [&] {
    if (!HasContext()) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    const CConstQUIV& k = m_oConst;
    const HCRYPTPROV handle = m_oProvider->ContextHandle();
    const auto id = static_cast<DWORD>(k.PP_CONTAINER());
    ByteArray buffer;
    DWORD length = 0;
    if (Platform().CryptGetProvParam(handle, id, buffer.data(), &length, 0)) {
      RaiseQuiv(GENERAL_ERROR_UNEXPECTED_ERROR);
    }
    if (LastPlatformError() != static_cast<uint32_t>(k.ERROR_MORE_DATA())) {
      RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
    }
    buffer.ReDimPreserve(static_cast<int64_t>(length) - 1);
    Platform().SetLastError(0);
    if (!Platform().CryptGetProvParam(handle, id, buffer.data(), &length, 0)) {
      RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_GET_NAME);
    }
    o_sContainerName = CProvider::AnsiTextBeforeZero(buffer);
  });
}

bool CContainer::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CContainer.OnStartPage", i_oScript);
}

}  // namespace quiv
