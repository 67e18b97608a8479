#include "provider/CProvider.h"

#include <string>
#include <string_view>
#include <vector>

#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "platform/PlatformSeam.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"

namespace quiv {

namespace {

using platform::Platform;

// Zero-terminated UTF-16 buffer for the wide entry points: "" becomes a lone terminator, never
// a null pointer.
std::u16string WideZ(const String& text) {
  return text.u16();
}

// Zero-terminated narrow buffer in the system code page (UTF-8 on this platform).
std::string NarrowZ(const String& text) {
  return text.ToNarrow();
}

bool HasFlag(int32_t flags, int32_t flag) {
  return (flags & flag) != 0;
}

// The variable-length read shared by the parameter readers: a one-byte buffer and length 0 ask
// for the size; only ERROR_MORE_DATA is the expected answer.
ByteArray QuerySize(HCRYPTPROV hProv, int32_t id, int32_t flags, DWORD& io_len) {
  const CConstQUIV k;
  ByteArray buffer;
  io_len = 0;
  if (Platform().CryptGetProvParam(hProv, static_cast<DWORD>(id), buffer.data(), &io_len,
                                   static_cast<DWORD>(flags))) {
    RaiseQuiv(GENERAL_ERROR_UNEXPECTED_ERROR);
  }
  if (LastPlatformError() != static_cast<uint32_t>(k.ERROR_MORE_DATA())) {
    RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
  }
  buffer.ReDimPreserve(static_cast<int64_t>(io_len) - 1);
  return buffer;
}

}  // namespace

Ref<CProvider> CProvider::Create() {
  Ref<CProvider> provider = MakeRef<CProvider>();
  provider->Initialize();
  return provider;
}

CProvider::CProvider() = default;

CProvider::~CProvider() {
  if (!m_fTerminated) Terminate();
}

void CProvider::Initialize() {
  Trap(m_oLastError, u"QUIV.CProvider.Class_Initialize", [&] {
    // Working objects in their fixed order.
    Filled(m_oContainer);
    Filled(m_oMessageText);
    Filled(m_oSessionKey);
    Filled(m_oExKeyPair);
    Filled(m_oSigKeyPair);
    Filled(m_oHash);
    m_sWinVer = GetSystemVersionCode();
    m_oLastError = MakeRef<CErrHandler>();
  });
}

String CProvider::GetSystemVersionCode() {
  OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = 148;
  if (!Platform().GetVersionExA(&info)) return String();
  const DWORD id = info.dwPlatformId;
  const DWORD major = info.dwMajorVersion;
  const DWORD minor = info.dwMinorVersion;
  // Each later rule overrides an earlier match (2 = NT family, 1 = the 9x family).
  String code;
  if (id == 2 && major >= 5) code = u"2K";
  if (major == 4 && id == 1 && minor > 0) code = u"98";
  if (id == 1 && minor == 0) code = u"95";
  if (id == 2 && major <= 4) code = u"NT";
  return code;
}

String CProvider::AnsiTextBeforeZero(const ByteArray& i_abText) {
  const auto bytes = i_abText.span();
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const std::u16string wide = String::FromUtf8(text).u16();
  const size_t zero = wide.find(u'\0');
  if (zero == std::u16string::npos) RaiseRuntime(kErrInvalidProcedureCall);
  return String(wide.substr(0, zero));
}

template <class T>
Ref<T>& CProvider::Filled(Ref<T>& io_oSlot) {
  // Any access to an empty slot first makes a fresh object tied to this provider.
  if (io_oSlot.IsNothing()) {
    io_oSlot = MakeRef<T>();
    io_oSlot->SetProvider(RefTo(this));
  }
  return io_oSlot;
}

template <class T>
void CProvider::Release(Ref<T>& io_oSlot) {
  // The child's termination drops its reference back to us, which breaks the cycle.
  if (!io_oSlot.IsNothing()) {
    io_oSlot->Terminate();
    io_oSlot.SetNothing();
  }
}

Ref<CContainer>& CProvider::Container() {
  return Filled(m_oContainer);
}

bool CProvider::LoadProvider(const String& i_sContainer, int32_t i_lContainerAccess,
                             int32_t i_lContainerKeysAccess) {
  return Trap(m_oLastError, u"QUIV.CProvider.LoadProvider", [&] {
    if (!Container()->LoadContainer(i_sContainer, i_lContainerAccess, i_lContainerKeysAccess)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_LOAD_PROVIDER);
    }
  });
}

bool CProvider::SetProviderName(const String& i_sProviderName) {
  return Trap(m_oLastError, u"QUIV.CProvider.SetProviderName", [&] {
    if (i_sProviderName != m_oConst.MS_DEF_PROV() &&
        i_sProviderName != m_oConst.MS_ENHANCED_PROV()) {
      RaiseQuiv(PROVIDER_ERROR_PROVIDER_UNSUPPORTED_IN_THIS_QUIV_VERSION);
    }
    m_sProviderName = i_sProviderName;
  });
}

bool CProvider::SetProviderTypeID(int32_t i_lProviderTypeID) {
  return Trap(
      m_oLastError, u"QUIV.CProvider.SetProviderTypeID",
      [&] {
        if (i_lProviderTypeID != m_oConst.PROV_RSA_FULL()) {
          RaiseQuiv(PROVIDER_ERROR_PROVIDER_TYPE_UNSUPPORTED_IN_THIS_QUIV_VERSION);
        }
        m_lProviderType = i_lProviderTypeID;
      },
      [&](CErrHandler& e) { e.AddParam(u"i_lProviderTypeID", i_lProviderTypeID); });
}

bool CProvider::SetProviderTypeCode(String& i_sProvTypeCode) {
  return Trap(
      m_oLastError, u"QUIV.CProvder.SetProviderTypeCode",
      [&] {
        i_sProvTypeCode = i_sProvTypeCode.Trim();
        if (i_sProvTypeCode != String(u"PROV_RSA_FULL")) {
          RaiseQuiv(PROVIDER_ERROR_PROVIDER_TYPE_UNSUPPORTED_IN_THIS_QUIV_VERSION);
        }
        if (!SetProviderTypeID(m_oConst.PROV_RSA_FULL())) {
          RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_SET_PROVIDER_ID);
        }
      },
      [&](CErrHandler& e) { e.AddParam(u"i_sProvTypeCode", i_sProvTypeCode); });
}

bool CProvider::GetProviderName(String& o_sProvName) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetProviderName", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    Variant value;
    if (!GetProvParam(m_oConst.PP_NAME(), value)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER);
    }
    o_sProvName = value.TextForm();
  });
}

bool CProvider::GetProviderTypeID(int32_t& o_lType) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetProviderTypeID", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    Variant value;
    if (!GetProvParam(m_oConst.PP_PROVTYPE(), value)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER);
    }
    o_lType = value.ToLong();
  });
}

bool CProvider::GetProviderTypeCode(String& o_sTypeName) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetProviderTypeCode", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    int32_t type = 0;
    if (!GetProviderTypeID(type)) RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_TYPE_ID);
    const CConstQUIV& k = m_oConst;
    // Compared in the fixed order; the first equal value names the type.
    const std::pair<int32_t, const char16_t*> names[] = {
        {k.PROV_RSA_FULL(), u"PROV_RSA_FULL"},
        {k.PROV_RSA_SIG(), u"PROV_RSA_SIG"},
        {k.PROV_DSS(), u"PROV_DSS"},
        {k.PROV_FORTEZZA(), u"PROV_FORTEZZA"},
        {k.PROV_MS_EXCHANGE(), u"PROV_MS_EXCHANGE"},
        {k.PROV_SSL(), u"PROV_SSL"},
        {k.PROV_RSA_SCHANNEL(), u"PROV_RSA_SCHANNEL"},
        {k.PROV_DSS_DH(), u"PROV_DSS_DH"},
        {k.PROV_EC_ECDSA_SIG(), u"PROV_EC_ECDSA_SIG"},
        {k.PROV_EC_ECNRA_SIG(), u"PROV_EC_ECNRA_SIG"},
        {k.PROV_EC_ECDSA_FULL(), u"PROV_EC_ECDSA_FULL"},
        {k.PROV_EC_ECNRA_FULL(), u"PROV_EC_ECNRA_FULL"},
        {k.PROV_DH_SCHANNEL(), u"PROV_DH_SCHANNEL"},
        {k.PROV_SPYRUS_LYNKS(), u"PROV_SPYRUS_LYNKS"},
        {k.PROV_RNG(), u"PROV_RNG"},
        {k.PROV_INTEL_SEC(), u"PROV_INTEL_SEC"},
    };
    for (const auto& [value, name] : names) {
      if (value == type) {
        o_sTypeName = name;
        Platform().SetLastError(0);
        return;
      }
    }
    o_sTypeName = String();
    RaiseQuiv(PROVIDER_ERROR_UNKNOWN_PROVIDER_TYPE);
  });
}

bool CProvider::GetProviderVersion(String& o_sVersion) {
  return Trap(m_oLastError, u"CProvider.GetProviderVersion", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    Variant value;
    if (!GetProvParam(m_oConst.PP_VERSION(), value)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER);
    }
    o_sVersion = value.TextForm();
  });
}

bool CProvider::GetProviderImplementation(String& o_lImpType) {
  return Trap(
      m_oLastError, u"QUIV.CProvider.Get ImplementationType",
      [&] {
        if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
        Variant value;
        if (!GetProvParam(m_oConst.PP_IMPTYPE(), value)) {
          RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER);
        }
        o_lImpType = String::FromInt(value.ToLong());
      },
      [&](CErrHandler& e) { e.AddParam(u"o_lImpType", o_lImpType); });
}

Variant CProvider::Clear() {
  const bool done = Trap(m_oLastError, u"QUIV.CProvider.Clear", [&] {
    // Keys and hashes go before the context that made them; the container keeps no state.
    if (!Filled(m_oExKeyPair)->Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES);
    if (!Filled(m_oHash)->Clear()) RaiseQuiv(HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT);
    if (!Filled(m_oMessageText)->Clear()) {
      RaiseQuiv(MESSAGETEXT_ERROR_UNABLE_TO_CLEAR_MESSAGETEXT_OBJECT);
    }
    if (!Filled(m_oSessionKey)->Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES);
    if (!Filled(m_oSigKeyPair)->Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES);
    if (m_fHasContext && !Platform().CryptReleaseContext(m_hProvider, 0)) {
      m_fHasContext = false;
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_RELEASE_CONTEXT);
    }
    m_fHasContext = false;  // the stale handle stays in m_hProvider
  });
  return done ? Variant(true) : Variant();
}

bool CProvider::Terminate() {
  return Trap(m_oLastError, u"QUIV.CProvider.Class_Terminate", [&] {
    // Release order: container, message text, session key, exchange pair, signature pair, hash
    // value, then the context and the record.
    Release(m_oContainer);
    Release(m_oMessageText);
    Release(m_oSessionKey);
    Release(m_oExKeyPair);
    Release(m_oSigKeyPair);
    Release(m_oHash);
    if (m_fHasContext) {
      if (!Platform().CryptReleaseContext(m_hProvider, 0)) {
        RaiseQuiv(GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT);
      }
    }
    m_fHasContext = false;
    if (!m_oLastError.IsNothing()) m_oLastError.SetNothing();
    m_fTerminated = true;
  });
}

bool CProvider::TerminateAll() {
  return Trap(m_oLastError, u"QUIV.CProvider.TerminateAll", [&] {
    Terminate();
    if (!m_fTerminated) RaiseQuiv(PROVIDER_ERROR_CLASS_TERMINATE_FAILED);
  });
}

bool CProvider::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CProvider.OnStartPage", i_oScript);
}

bool CProvider::GetContainerObject(Ref<CContainer>& o_oContainer) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetContainerObject", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    o_oContainer = Container();
  });
}

bool CProvider::GetMessageTextObject(Ref<CMessagetext>& o_oMessageText) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetMessageTextObject", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    o_oMessageText = Filled(m_oMessageText);
  });
}

bool CProvider::GetSessionKeyObject(Ref<CSessionKey>& o_oSessionKey) {
  // The container's name in the source is how callers and logs have always seen it.
  return Trap(m_oLastError, u"QUIV.CContainer.GetSessionKeyObject", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    o_oSessionKey = Filled(m_oSessionKey);
  });
}

bool CProvider::GetExchangeKeyPairObject(Ref<CRSAKeyPair>& o_oExKeyPair) {
  return Trap(m_oLastError, u"QUIV.CContainer.GetExchangeKeyPairObject", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    Ref<CRSAKeyPair>& pair = Filled(m_oExKeyPair);
    // The role is set again at every hand-out.
    if (!pair->SetExOrSigKeyObject(static_cast<int16_t>(m_oConst.AT_KEYEXCHANGE()))) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_AS_EXCHANGE_OR_SIGNATURE_KEY_PAIR);
    }
    o_oExKeyPair = pair;
  });
}

bool CProvider::GetSignatureKeyPairObject(Ref<CRSAKeyPair>& o_oSigKeyPair) {
  // No context check here, unlike the exchange pair: callers rely on getting it before loading.
  return Trap(m_oLastError, u"QUIV.CContainer.GetSignatureKeyPairObject", [&] {
    Ref<CRSAKeyPair>& pair = Filled(m_oSigKeyPair);
    if (!pair->SetExOrSigKeyObject(static_cast<int16_t>(m_oConst.AT_SIGNATURE()))) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_AS_EXCHANGE_OR_SIGNATURE_KEY_PAIR);
    }
    o_oSigKeyPair = pair;
  });
}

bool CProvider::GetListOfAlgorithms(Ref<CAlgInfo>& o_oAlgInfo) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetListOfAlgorithms", [&] {
    if (!m_fHasContext) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    Dictionary items;
    if (!GetProvParamList(m_oConst.PP_ENUMALGS_EX(), items, 0)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_LIST_OF_PROVIDER_PARAMS);
    }
    // A Nothing catalogue is the run time's error 91, recorded as it stands.
    if (!o_oAlgInfo->SetAlgorithms(items))
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_ASSIGN_PARAMETER_ARRAY);
  });
}

bool CProvider::GetHashValueObject(Ref<CHashValue>& o_oHash) {
  return Trap(m_oLastError, u"QUIV.Provider.GetHashValueObject",
              [&] { o_oHash = Filled(m_oHash); });
}

BOOL CProvider::CallAcquire(HCRYPTPROV& io_hProv, const String& i_sContainer,
                            const String& i_sProvider, int32_t i_lType, int32_t i_lFlags) const {
  const DWORD type = static_cast<DWORD>(i_lType);
  const DWORD flags = static_cast<DWORD>(i_lFlags);
  if (m_sWinVer == String(u"2K") || m_sWinVer == String(u"NT")) {
    const std::u16string container = WideZ(i_sContainer);
    const std::u16string provider = WideZ(i_sProvider);
    return Platform().CryptAcquireContextW(&io_hProv, reinterpret_cast<LPCWSTR>(container.c_str()),
                                           reinterpret_cast<LPCWSTR>(provider.c_str()), type,
                                           flags);
  }
  if (m_sWinVer == String(u"98") || m_sWinVer == String(u"95")) {
    const std::string container = NarrowZ(i_sContainer);
    const std::string provider = NarrowZ(i_sProvider);
    return Platform().CryptAcquireContextA(&io_hProv, container.c_str(), provider.c_str(), type,
                                           flags);
  }
  return FALSE;  // an unknown system: neither entry point is called
}

// Creates the default container after the open found none. Deliberately more than the published
// open-then-create sequence: another thread or process may create the same container between
// the two calls (two first users of an empty store), and the create then fails with NTE_EXISTS
// only because the container now exists. That is no failure for a caller who asked to open or
// create it, so the container is opened again, without CRYPT_NEWKEYSET; io_lFlags then holds
// the flags of that open.
BOOL CProvider::CreateDefaultContainer(HCRYPTPROV& io_hProv, const String& i_sProvider,
                                       int32_t i_lType, int32_t& io_lFlags) const {
  const CConstQUIV& k = m_oConst;
  if (CallAcquire(io_hProv, String(), i_sProvider, i_lType, io_lFlags)) return TRUE;
  if (LastPlatformError() != static_cast<uint32_t>(k.NTE_EXISTS())) return FALSE;
  io_lFlags &= ~k.CRYPT_NEWKEYSET();
  return CallAcquire(io_hProv, String(), i_sProvider, i_lType, io_lFlags);
}

bool CProvider::AcquireContext(const String& i_sContainerName, const String& i_sProviderName,
                               int32_t i_lProviderType, int32_t i_lFlags, HCRYPTPROV& o_hProv) {
  int32_t flags = i_lFlags;
  return Trap(
      m_oLastError, u"QUIV.CProvider.AcquireContext",
      [&] {
        const CConstQUIV& k = m_oConst;
        if (!i_sContainerName.IsEmpty() && HasFlag(flags, k.CRYPT_VERIFYCONTEXT())) {
          RaiseQuiv(CONTAINER_ERROR_MUST_HAVE_EMPTY_CONTAINER_NAME_IF_ONLY_PUBLIC_KEYS_ACCESS);
        }
        if (!CallAcquire(o_hProv, i_sContainerName, i_sProviderName, i_lProviderType, flags)) {
          if (!i_sContainerName.IsEmpty()) {
            m_fHasContext = false;
            if (HasFlag(flags, k.CRYPT_NEWKEYSET())) {
              RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_CREATE_NEW_CONTAINER);
            }
            if (HasFlag(flags, k.CRYPT_DELETEKEYSET())) {
              RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_DELETE_CONTAINER);
            }
            RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_ACQUIRE_CONTEXT);
          }
          // The default container: a missing key set is created on first use. The retry
          // happens whatever the flags already hold.
          const uint32_t last = LastPlatformError();
          if (last != static_cast<uint32_t>(k.NTE_BAD_KEYSET()) &&
              last != static_cast<uint32_t>(k.NTE_KEYSET_NOT_DEF())) {
            RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_ACQUIRE_CONTEXT);
          }
          flags |= k.CRYPT_NEWKEYSET();
          if (!CreateDefaultContainer(o_hProv, i_sProviderName, i_lProviderType, flags)) {
            m_fHasContext = false;
            RaiseQuiv(CONTAINER_ERROR_UNABLE_TO_CREATE_DEFAULT_CONTAINER);
          }
        }
        m_fHasContext = !HasFlag(flags, k.CRYPT_DELETEKEYSET());
        m_hProvider = o_hProv;
      },
      [&](CErrHandler& e) {
        e.AddParam(u"i_sContainerName", i_sContainerName);
        e.AddParam(u"i_sProviderName", i_sProviderName);
        e.AddParam(u"i_lProviderType", i_lProviderType);
        e.AddParam(u"i_lFlags", i_lFlags);
      });
}

int32_t CProvider::DecodeLong(const ByteArray& i_abBuffer) const {
  // Little-endian, with the run time's overflow check: a set top bit does not fit.
  int64_t value = 0;
  int64_t scale = 1;
  for (int64_t i = 0; i < 4; ++i, scale *= 256) value += i_abBuffer.At(i) * scale;
  if (value > INT32_MAX) RaiseRuntime(kErrOverflow);
  return static_cast<int32_t>(value);
}

bool CProvider::GetProvParam(int32_t i_lParam, Variant& o_vValue, int32_t /*i_lUnused*/) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetProvParam", [&] {
    const CConstQUIV& k = m_oConst;
    DWORD length = 0;
    ByteArray buffer = QuerySize(m_hProvider, i_lParam, 0, length);
    Platform().SetLastError(0);
    if (!Platform().CryptGetProvParam(m_hProvider, static_cast<DWORD>(i_lParam), buffer.data(),
                                      &length, 0)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER);
    }
    buffer.ReDimPreserve(static_cast<int64_t>(length) - 1);
    const int32_t id = i_lParam;
    if (id == k.PP_IMPTYPE() || id == k.PP_PROVTYPE() || id == k.PP_USE_HARDWARE_RNG() ||
        id == k.PP_KEYX_KEYSIZE_INC() || id == k.PP_SIG_KEYSIZE_INC()) {
      o_vValue = DecodeLong(buffer);
    } else if (id == k.PP_CONTAINER() || id == k.PP_NAME()) {
      o_vValue = AnsiTextBeforeZero(buffer);
    } else if (id == k.PP_VERSION()) {
      String text;
      for (int64_t i = 3; i >= 0; --i) {
        text += String::FromInt(buffer.At(i));
        if (i > 0) text += u".";
      }
      o_vValue = text;
    } else if (id == k.PP_ENUMALGS() || id == k.PP_ENUMALGS_EX() || id == k.PP_ENUMCONTAINERS()) {
      RaiseQuiv(PROVIDER_ERROR_USE_CPROVIDER_GETPROVPARAMLIST_INSTEAD);
    } else {
      RaiseQuiv(PROVIDER_ERROR_UNSUPPORTED_PARAMETER);
    }
  });
}

bool CProvider::GetProvParamList(int32_t i_lParam, Dictionary& io_dList, int32_t /*i_lFlags*/) {
  return Trap(m_oLastError, u"QUIV.CProvider.GetProvParamList", [&] {
    const CConstQUIV& k = m_oConst;
    int32_t flags = k.CRYPT_FIRST();
    DWORD length = 0;
    ByteArray buffer = QuerySize(m_hProvider, i_lParam, flags, length);
    Platform().SetLastError(0);
    int32_t index = -1;
    const auto noMoreItems = static_cast<uint32_t>(k.ERROR_NO_MORE_ITEMS());
    // The length is not reset between items: each call offers the length of the item before,
    // so an item longer than its predecessor fails (the buffer keeps the first query's size).
    while (LastPlatformError() != noMoreItems) {
      if (Platform().CryptGetProvParam(m_hProvider, static_cast<DWORD>(i_lParam), buffer.data(),
                                       &length, static_cast<DWORD>(flags))) {
        if (index == -1) flags ^= k.CRYPT_FIRST();
        ++index;
        io_dList.Add(index, buffer);
        continue;
      }
      const uint32_t last = LastPlatformError();
      if (last == noMoreItems) break;
      if (last == static_cast<uint32_t>(k.ERROR_MORE_DATA())) {
        RaiseQuiv(GENERAL_ERROR_CAPI_FUNCTION_UNEXPECTEDLY_NEEDED_MORE_MEMORY);
      }
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_LOOP_THROUGH_CRYPTPROVPARAM);
    }
  });
}

}  // namespace quiv
