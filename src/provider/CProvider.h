// CProvider: the root object of a session. It owns the one provider context handle every other
// object works through, remembers the provider name and type the next acquisition uses, reads
// the context's parameters, and owns one instance of each working object, which it hands out.
//
// Make one with CProvider::Create() (the working objects need a counted reference back to their
// provider, which only exists once the object is shared). Every public method follows the
// library's result convention: true on success; on failure false, with m_oLastError loaded
// (source "QUIV.CProvider.<Routine>" unless the method says otherwise).
//
// Ownership: the provider owns the context handle (released by Clear and by termination only),
// its LastError record, and its working objects; each working object keeps a counted reference
// back to it. That cycle never breaks by itself: end a session with TerminateAll, which releases
// the working objects and the context. Children never copy the handle; they read ContextHandle()
// and HasContext() whenever they call the platform, so a re-acquired context is seen by all.
// Single-threaded: one provider and its children belong to one thread at a time.
//
// Working objects: the container, the message text, the session key, the exchange and the
// signature key pairs, the hash value and the constants catalogue.
#ifndef QUIV_PROVIDER_CPROVIDER_H
#define QUIV_PROVIDER_CPROVIDER_H

#include <cstdint>

#include "automation/ByteArray.h"
#include "automation/Dictionary.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "constants/CConstQUIV.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"
#include "provider/ProviderEnums.h"

namespace quiv {

class CAlgInfo;
class CContainer;
class CHashValue;
class CMessagetext;
class CRSAKeyPair;
class CSessionKey;

class QUIV_API CProvider final : public Object {
 public:
  // A provider with its working objects tied to it, its version code read and its LastError
  // record made (failures recorded with source "QUIV.CProvider.Class_Initialize").
  static Ref<CProvider> Create();

  // Use Create(); a provider made directly has no working objects until Initialize runs.
  CProvider();
  ~CProvider() override;

  // The LastError property.
  Ref<CErrHandler> m_oLastError;

  // Opens (or, for the empty name, opens or creates) a container through the container object.
  // Fails with PROVIDER_ERROR_UNABLE_TO_LOAD_PROVIDER; the container's record holds the cause.
  bool LoadProvider(const String& i_sContainer = String(), int32_t i_lContainerAccess = SINGLE_USER,
                    int32_t i_lContainerKeysAccess = ALL_KEYS);
  // Only the Base and Enhanced provider names, exactly (PROVIDER_ERROR_PROVIDER_UNSUPPORTED_...).
  bool SetProviderName(const String& i_sProviderName);
  // Only PROV_RSA_FULL (PROVIDER_ERROR_PROVIDER_TYPE_UNSUPPORTED_...; parameter
  // "i_lProviderTypeID").
  bool SetProviderTypeID(int32_t i_lProviderTypeID);
  // Trims the caller's string in place; only "PROV_RSA_FULL" (source
  // "QUIV.CProvder.SetProviderTypeCode", parameter "i_sProvTypeCode").
  bool SetProviderTypeCode(String& i_sProvTypeCode);
  // Read from the live context (GENERAL_ERROR_NO_CONTEXT without one).
  bool GetProviderName(String& o_sProvName);
  bool GetProviderTypeID(int32_t& o_lType);
  bool GetProviderTypeCode(String& o_sTypeName);
  // PP_VERSION as "a.b.c.d", most significant byte first (source "CProvider.GetProviderVersion").
  bool GetProviderVersion(String& o_sVersion);
  // PP_IMPTYPE as a decimal string (source "QUIV.CProvider.Get ImplementationType", parameter
  // "o_lImpType").
  bool GetProviderImplementation(String& o_lImpType);
  // Empties the working objects and releases the context. A Variant holding true on success;
  // Empty on failure.
  Variant Clear();
  // Runs termination now; true when it completed (PROVIDER_ERROR_CLASS_TERMINATE_FAILED).
  bool TerminateAll();
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  // The object factory: the provider's own container (GENERAL_ERROR_NO_CONTEXT without a
  // context). The output is left as it was on failure.
  bool GetContainerObject(Ref<CContainer>& o_oContainer);
  // The provider's own message text (GENERAL_ERROR_NO_CONTEXT without a context).
  bool GetMessageTextObject(Ref<CMessagetext>& o_oMessageText);
  // The session key (GENERAL_ERROR_NO_CONTEXT; source "QUIV.CContainer.GetSessionKeyObject").
  bool GetSessionKeyObject(Ref<CSessionKey>& o_oSessionKey);
  // The exchange pair, made an AT_KEYEXCHANGE pair at every hand-out (GENERAL_ERROR_NO_CONTEXT,
  // KEY_ERROR_UNABLE_TO_SET_AS_EXCHANGE_OR_SIGNATURE_KEY_PAIR; source
  // "QUIV.CContainer.GetExchangeKeyPairObject").
  bool GetExchangeKeyPairObject(Ref<CRSAKeyPair>& o_oExKeyPair);
  // The signature pair, made an AT_SIGNATURE pair; needs no context (source
  // "QUIV.CContainer.GetSignatureKeyPairObject").
  bool GetSignatureKeyPairObject(Ref<CRSAKeyPair>& o_oSigKeyPair);
  // The hash value; needs no context and always succeeds (source
  // "QUIV.Provider.GetHashValueObject").
  bool GetHashValueObject(Ref<CHashValue>& o_oHash);
  // Fills the caller's catalogue with every algorithm of the provider (GENERAL_ERROR_NO_CONTEXT,
  // PROVIDER_ERROR_UNABLE_TO_GET_LIST_OF_PROVIDER_PARAMS, PROVIDER_ERROR_UNABLE_TO_ASSIGN_
  // PARAMETER_ARRAY; a Nothing catalogue is run-time error 91).
  bool GetListOfAlgorithms(Ref<CAlgInfo>& o_oAlgInfo);

  String TypeName() const override { return u"CProvider"; }

 private:
  // The library's own classes reach the context and the provider's parameter readers through
  // these internal routines; callers do not (a caller that could set HasContext could corrupt a
  // session). Tests reach them through InternalAccess (tests/support), which is not installed.
  friend class CAlgInfo;
  friend class CContainer;
  friend class CHashValue;
  friend class CMessagetext;
  friend class CRSAKeyPair;
  friend class CSessionKey;
  friend struct InternalAccess;

  // Acquires a context (see the source for the default-container retry). Parameters
  // "i_sContainerName", "i_sProviderName", "i_lProviderType", "i_lFlags" on failure.
  bool AcquireContext(const String& i_sContainerName, const String& i_sProviderName,
                      int32_t i_lProviderType, int32_t i_lFlags, HCRYPTPROV& o_hProv);
  // Reads and decodes a single-valued PP_* parameter into a number or a string. The third
  // argument is not used.
  bool GetProvParam(int32_t i_lParam, Variant& o_vValue, int32_t i_lUnused = 0);
  // Collects an enumerating PP_* parameter: key = item index from 0, value = the raw buffer.
  // The flags argument is not used.
  bool GetProvParamList(int32_t i_lParam, Dictionary& io_dList, int32_t i_lFlags = 0);
  HCRYPTPROV ContextHandle() const { return m_hProvider; }
  bool HasContext() const { return m_fHasContext; }
  void SetHasContext(bool i_fHasContext) { m_fHasContext = i_fHasContext; }
  String ProviderName() const { return m_sProviderName; }
  int32_t ProviderType() const { return m_lProviderType; }
  String WinVer() const { return m_sWinVer; }

  // The platform version code from GetVersionExA: "2K", "NT", "98", "95" or "" (query failed
  // or an unknown family).
  static String GetSystemVersionCode();
  // Bytes of ANSI text (the system code page, UTF-8 here) as a string cut before the first zero
  // character; run-time error 5 when there is none.
  static String AnsiTextBeforeZero(const ByteArray& i_abText);

  void Initialize();
  bool Terminate();
  Ref<CContainer>& Container();
  template <class T>
  Ref<T>& Filled(Ref<T>& io_oSlot);
  template <class T>
  void Release(Ref<T>& io_oSlot);
  BOOL CallAcquire(HCRYPTPROV& io_hProv, const String& i_sContainer, const String& i_sProvider,
                   int32_t i_lType, int32_t i_lFlags) const;
  BOOL CreateDefaultContainer(HCRYPTPROV& io_hProv, const String& i_sProvider, int32_t i_lType,
                              int32_t& io_lFlags) const;
  int32_t DecodeLong(const ByteArray& i_abBuffer) const;

  HCRYPTPROV m_hProvider = 0;
  bool m_fHasContext = false;
  String m_sProviderName;
  int32_t m_lProviderType = 0;
  bool m_fTerminated = false;
  Ref<CContainer> m_oContainer;
  Ref<CMessagetext> m_oMessageText;
  Ref<CSessionKey> m_oSessionKey;
  Ref<CRSAKeyPair> m_oExKeyPair;
  Ref<CRSAKeyPair> m_oSigKeyPair;
  Ref<CHashValue> m_oHash;
  const CConstQUIV m_oConst{};  // stateless: every platform constant is read from it at use
  String m_sWinVer;
};

}  // namespace quiv

#endif
