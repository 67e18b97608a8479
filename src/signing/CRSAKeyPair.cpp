#include "signing/CRSAKeyPair.h"

#include <vector>

#include "automation/RunTime.h"
#include "data/CConvert.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "keys/CKeyTools.h"
#include "keys/CSessionKey.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"

namespace quiv {

namespace {
using platform::Platform;

// A buffer of `length` zero bytes, as a size query's answer asks for.
ByteArray Sized(DWORD length) {
  return ByteArray(std::vector<uint8_t>(length, 0));
}
}  // namespace

CRSAKeyPair::CRSAKeyPair() {
  Trap(m_oLastError, u"QUIV.CRSAKeyPair.Class_Initialize", [&] { SetDefaultKeySettings(); });
}

CRSAKeyPair::~CRSAKeyPair() {
  // Termination leaves the key to Clear; an object dropped without termination (a caller's
  // own, outside a provider) still gives its handle back to the provider.
  if (!m_fTerminated && !HoldsNoKeys()) Platform().CryptDestroyKey(m_hKey);
}

// ---- internal routines ----

void CRSAKeyPair::SetDefaultKeySettings() {
  Trap(m_oLastError, u"QUIV.CRSAKeyPair.SetDefaultKeySettings", [&] {
    m_lModulus = 0;
    m_fHasKeyPair = false;
    m_fPublicOnly = false;
    m_fUnloadable = true;
    m_nHashView = UNSPECIFIED;
  });
}

bool CRSAKeyPair::SetProvider(const Ref<CProvider>& i_oProvider) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.Set Provider", [&] { m_oProvider = i_oProvider; });
}

bool CRSAKeyPair::SetExOrSigKeyObject(int16_t i_nKeySpec) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.SetExOrSigKeyObject", [&] {
    if (i_nKeySpec != m_oConst.AT_SIGNATURE() && i_nKeySpec != m_oConst.AT_KEYEXCHANGE()) {
      RaiseQuiv(KEY_ERROR_MUST_BE_EITHER_SIGNATURE_OR_EXCHANGE_KEY_PAIR_TYPE);
    }
    m_nKeySpec = i_nKeySpec;
  });
}

bool CRSAKeyPair::GetKeyPairContents(int16_t& o_nContents) {
  // The record names the class only; callers and logs match on it.
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair",
      [&] {
        if (HoldsBoth())
          RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_CONTAINS_BOTH_PUBLIC_AND_KEY_PAIR_HANDLES);
        if (m_fHasKeyPair) {
          o_nContents = KEY_PAIR;
        } else if (m_fPublicOnly) {
          o_nContents = PUBLIC_KEY;
        } else {
          o_nContents = NOKEYS;
        }
      },
      [&](CErrHandler& e) { e.AddParam(u"o_nContents", o_nContents); });
}

bool CRSAKeyPair::GetKeyPairHandle(HCRYPTKEY& o_hKey) {
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair.GetKeyPairHandle",
      [&] {
        if (m_fPublicOnly) RaiseQuiv(KEY_ERROR_KEY_PAIR_FN_ATTEMPTED_WITH_PUBLIC_KEY_HANDLE);
        if (m_fHasKeyPair) {
          o_hKey = m_hKey;
          return;
        }
        if (m_nKeySpec == m_oConst.AT_KEYEXCHANGE()) {
          RaiseQuiv(KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_EXCHANGE_KEY_PAIR);
        }
        if (m_nKeySpec == m_oConst.AT_SIGNATURE()) {
          RaiseQuiv(KEY_ERROR_CONTAINER_DOES_NOT_CONTAIN_SIGNATURE_KEY_PAIR);
        }
        RaiseQuiv(KEY_ERROR_MUST_BE_EITHER_SIGNATURE_OR_EXCHANGE_KEY_PAIR_TYPE);
      },
      [&](CErrHandler& e) { e.AddParam(u"key pair type", m_nKeySpec); });
}

bool CRSAKeyPair::GetPublicKeyHandle(HCRYPTKEY& o_hKey) {
  // The class name in this source is the one callers and logs have always matched on.
  return Trap(m_oLastError, u"QUIV.CRSAPublicKey.GetPublicKeyHandle", [&] {
    if (m_fPublicOnly) {
      o_hKey = m_hKey;
    } else if (m_fHasKeyPair) {
      if (!GetKeyPairHandle(o_hKey)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_RSA_KEY_PAIR_HANDLE);
    } else {
      RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS);
    }
  });
}

void CRSAKeyPair::Terminate() {
  Trap(m_oLastError, u"QUIV.CRSAKeyPair.Class_Terminate", [&] {
    m_fTerminated = true;
    if (!m_oProvider.IsNothing()) m_oProvider.SetNothing();
    if (!m_oConvert.IsNothing()) m_oConvert.SetNothing();
    if (!m_oKeyTools.IsNothing()) m_oKeyTools.SetNothing();
    if (!m_oHash.IsNothing()) {
      // The hash object is ours alone: its termination runs as the last reference goes.
      m_oHash->Terminate();
      m_oHash.SetNothing();
    }
    if (!m_oLastError.IsNothing()) m_oLastError.SetNothing();
  });
}

// ---- helpers ----

HCRYPTPROV CRSAKeyPair::Context() const {
  return m_oProvider->ContextHandle();
}

CConvert& CRSAKeyPair::Converter() {
  if (m_oConvert.IsNothing()) m_oConvert = MakeRef<CConvert>();
  return *m_oConvert;
}

CKeyTools& CRSAKeyPair::KeyTools() {
  if (m_oKeyTools.IsNothing()) m_oKeyTools = MakeRef<CKeyTools>();
  return *m_oKeyTools;
}

CHashValue& CRSAKeyPair::HashObject() {
  if (m_oHash.IsNothing()) m_oHash = MakeRef<CHashValue>();
  return *m_oHash;
}

bool CRSAKeyPair::UseWideEntryPoints() const {
  const String version = m_oProvider->WinVer();
  return version == u"2K" || version == u"NT";
}

bool CRSAKeyPair::UseNarrowEntryPoints() const {
  const String version = m_oProvider->WinVer();
  return version == u"98" || version == u"95";
}

// ---- keys ----

bool CRSAKeyPair::SetModulus(int32_t i_lModulus) {
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair.SetModulus", [&] { m_lModulus = i_lModulus; },
      [&](CErrHandler& e) { e.AddParam(u"i_lModulus", i_lModulus); });
}

bool CRSAKeyPair::GetModulus(int32_t& o_lModulus) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.GetModulus", [&] {
    if (HoldsNoKeys()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS);
    Variant length;
    if (!KeyTools().GetKeyParam(m_hKey, m_oConst.KP_KEYLEN(), length)) {
      RaiseQuiv(KEY_ERROR_CRYPTGETKEYPARAM_FAILED);
    }
    o_lModulus = length.ToLong();
  });
}

bool CRSAKeyPair::GenerateKeyPair() {
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair.GenerateKeyPair",
      [&] {
        if (!Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
        // The length goes in the upper 16 bits of the flags (CryptGenKey). Computed in double
        // and converted with the run time's check, so 32768 bits or more overflow (error 6)
        // instead of wrapping into the sign bit.
        const double upper = 16777216.0 * static_cast<double>(m_lModulus / 256) +
                             65536.0 * static_cast<double>(m_lModulus % 256);
        int32_t flags = CLng(upper);
        if (m_fUnloadable) flags |= m_oConst.CRYPT_EXPORTABLE();
        HCRYPTKEY key = 0;
        if (!Platform().CryptGenKey(Context(), static_cast<ALG_ID>(m_nKeySpec),
                                    static_cast<DWORD>(flags), &key)) {
          RaiseQuiv(KEY_ERROR_UNABLE_TO_CREATE_KEY);
        }
        m_hKey = key;
        m_fHasKeyPair = true;
        m_fPublicOnly = false;
      },
      [&](CErrHandler& e) {
        e.AddParam(u"unloadable", m_fUnloadable);
        e.AddParam(u"modulus", m_lModulus);
      });
}

bool CRSAKeyPair::Clear() {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.Clear", [&] {
    if (HoldsNoKeys()) return;
    if (!Platform().CryptDestroyKey(m_hKey)) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
    m_hKey = 0;
    m_fHasKeyPair = false;
    m_fPublicOnly = false;
  });
}

Ref<CRSAKeyPair> CRSAKeyPair::View(bool i_fPrivate) {
  Ref<CRSAKeyPair> self;
  Trap(
      m_oLastError,
      i_fPrivate ? u"QUIV.CRSAKeyPair.PrivateKey Get" : u"QUIV.CRSAKeyPair.PublicKey Get",
      [&] {
        if (HoldsNoKeys()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS);
        if (i_fPrivate && m_fPublicOnly) {
          RaiseQuiv(KEY_ERROR_KEY_PAIR_FN_ATTEMPTED_WITH_PUBLIC_KEY_HANDLE);
        }
        if (HoldsBoth())
          RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_CONTAINS_BOTH_PUBLIC_AND_KEY_PAIR_HANDLES);
        int16_t view = UNSPECIFIED;
        if (m_nKeySpec == m_oConst.AT_SIGNATURE()) {
          view = i_fPrivate ? PRIVATE_SIGNATURE_KEY : PUBLIC_SIGNATURE_KEY;
        } else if (m_nKeySpec == m_oConst.AT_KEYEXCHANGE()) {
          view = i_fPrivate ? PRIVATE_EXCHANGE_KEY : PUBLIC_EXCHANGE_KEY;
        } else {
          RaiseQuiv(KEY_ERROR_MUST_BE_EITHER_SIGNATURE_OR_EXCHANGE_KEY_PAIR_TYPE);
        }
        Ref<CRSAKeyPair> me = RefTo(this);  // before the view changes: a failure keeps the old one
        m_nHashView = view;
        self = me;
      },
      [&](CErrHandler& e) {
        e.AddParam(u"type of keypair:", m_nKeySpec);
        e.AddParam(u"contains only pub key:", m_fPublicOnly);
      });
  return self;
}

Ref<CRSAKeyPair> CRSAKeyPair::PublicKey() {
  return View(false);
}

Ref<CRSAKeyPair> CRSAKeyPair::PrivateKey() {
  return View(true);
}

bool CRSAKeyPair::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CRSAKeyPair.OnStartPage", i_oScript);
}

// ---- signatures ----

int16_t CRSAKeyPair::ValidateSignee(const Ref<IHash>& i_oSignee) {
  int16_t what = UNSPECIFIED;
  if (!i_oSignee->WhatToHash(what)) RaiseQuiv(HASH_ERROR_UNABLE_TO_DETERMINE_WHAT_TO_HASH);
  switch (what) {
    case SESSION_KEY: {
      HCRYPTKEY key = 0;
      if (!i_oSignee->GetSessionKeyHandle(key)) {
        RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE);
      }
      break;
    }
    case MESSAGETEXT:
    case PRIVATE_EXCHANGE_KEY:
    case PRIVATE_SIGNATURE_KEY:
    case PUBLIC_EXCHANGE_KEY:
    case PUBLIC_SIGNATURE_KEY: {
      // Only a check that the signee can answer; the hash object fetches the bytes again.
      ByteArray data;
      if (!i_oSignee->GetDataAsByteArray(data)) {
        RaiseQuiv(SIGNATURE_ERROR_UNABLE_TO_GET_DATA_TO_SIGN_OR_VERIFY);
      }
      break;
    }
    case UNSPECIFIED:
      RaiseQuiv(SIGNATURE_ERROR_WHAT_TO_SIGN_NOT_SPECIFIED);
    default:
      RaiseQuiv(SIGNATURE_ERROR_UNABLE_TO_DETERMINE_WHAT_TO_SIGN);
  }
  return what;
}

void CRSAKeyPair::HashForSignature(const Ref<IHash>& i_oHashee, int32_t i_lHashAlgID,
                                   QUIV_ERROR i_eHashError, HCRYPTHASH& o_hHash) {
  CHashValue& hash = HashObject();
  if (!hash.Clear()) RaiseQuiv(HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT);
  if (!hash.SetHashAlgorithmID(i_lHashAlgID)) RaiseQuiv(HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID);
  if (!hash.Hash(i_oHashee)) RaiseQuiv(i_eHashError);
  if (!hash.GetHashHandle(o_hHash)) RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_HANDLE);
}

bool CRSAKeyPair::Sign(const Ref<IHash>& i_oSignee, String& o_sSignatureBlock,
                       DATA_FORMAT o_nSignatureBlockFormat, const int32_t& i_lHashAlgID) {
  int32_t algorithm = i_lHashAlgID;
  return Sign(i_oSignee, o_sSignatureBlock, o_nSignatureBlockFormat, algorithm);
}

bool CRSAKeyPair::Sign(const Ref<IHash>& i_oSignee, String& o_sSignatureBlock,
                       DATA_FORMAT o_nSignatureBlockFormat, int32_t& io_lHashAlgID) {
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair.Sign",
      [&] {
        ByteArray signature;
        if (io_lHashAlgID == -1) io_lHashAlgID = static_cast<int32_t>(m_oConst.CALG_MD5());
        HashObject().SetProvider(m_oProvider);
        if (!m_oProvider->HasContext()) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
        if (m_fPublicOnly) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_CONTAINS_ONLY_A_PUBLIC_KEY_HANDLE);
        if (KeyTools().GetAlgClass(io_lHashAlgID) != m_oConst.ALG_CLASS_HASH()) {
          RaiseQuiv(HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID);
        }
        const int16_t what = ValidateSignee(i_oSignee);
        HCRYPTHASH hash = 0;
        HashForSignature(i_oSignee, io_lHashAlgID,
                         what == SESSION_KEY ? HASH_ERROR_UNABLE_TO_HASH_SESSION_KEY
                                             : HASH_ERROR_UNABLE_TO_HASH_THE_DATA,
                         hash);
        // Size query with a one-byte buffer, then the signature itself. The version code picks
        // the wide or the narrow entry point; with neither the query fails as a failed call.
        const DWORD keySpec = static_cast<DWORD>(m_nKeySpec);
        DWORD length = 0;
        BOOL signedOk = FALSE;
        auto signHash = [&] {
          if (UseWideEntryPoints()) {
            signedOk =
                Platform().CryptSignHashW(hash, keySpec, nullptr, 0, signature.data(), &length);
          }
          if (UseNarrowEntryPoints()) {
            signedOk =
                Platform().CryptSignHashA(hash, keySpec, nullptr, 0, signature.data(), &length);
          }
        };
        signHash();
        if (!signedOk) {
          if (LastPlatformError() != static_cast<uint32_t>(m_oConst.ERROR_MORE_DATA())) {
            RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
          }
          signature = Sized(length);
          Platform().SetLastError(0);
        }
        signHash();
        if (!signedOk) RaiseQuiv(SIGNATURE_ERROR_UNABLE_TO_SIGN_HASH);
        signature.ReDimPreserve(static_cast<int64_t>(length) - 1);
        if (!Converter().UnloadItem(signature, o_sSignatureBlock, o_nSignatureBlockFormat, true)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
        }
        if (!HashObject().Clear()) RaiseQuiv(HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT);
      },
      [&](CErrHandler& e) {
        e.AddParam(u"o_sSignatureBlock", o_sSignatureBlock);
        e.AddParam(u"o_nSignatureBlockFormat", static_cast<int32_t>(o_nSignatureBlockFormat));
        e.AddParam(u"i_lHashAlgID", io_lHashAlgID);
      });
}

bool CRSAKeyPair::VerifySignature(const Ref<IHash>& i_oSignedObject, const String& i_sSigBlock,
                                  DATA_FORMAT i_nSigBlockFormat, bool& o_fValid,
                                  const int32_t& i_lHashAlgID) {
  int32_t algorithm = i_lHashAlgID;
  return VerifySignature(i_oSignedObject, i_sSigBlock, i_nSigBlockFormat, o_fValid, algorithm);
}

bool CRSAKeyPair::VerifySignature(const Ref<IHash>& i_oSignedObject, const String& i_sSigBlock,
                                  DATA_FORMAT i_nSigBlockFormat, bool& o_fValid,
                                  int32_t& io_lHashAlgID) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.VerifySignature", [&] {
    ByteArray signature;
    HashObject().SetProvider(m_oProvider);
    if (io_lHashAlgID == -1) io_lHashAlgID = static_cast<int32_t>(m_oConst.CALG_MD5());
    if (HoldsNoKeys()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS);
    if (HoldsBoth()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_CONTAINS_BOTH_PUBLIC_AND_KEY_PAIR_HANDLES);
    if (!Converter().LoadItem(i_sSigBlock, i_nSigBlockFormat, signature)) {
      RaiseQuiv(SIGNATURE_ERROR_UNABLE_TO_LOAD_SIGNATURE_BLOCK);
    }
    HCRYPTHASH hash = 0;
    HashForSignature(i_oSignedObject, io_lHashAlgID, HASH_ERROR_UNABLE_TO_HASH_THE_DATA, hash);
    const DWORD length = static_cast<DWORD>(signature.UBound() + 1);
    // A pair verifies with its own handle, as a public key does.
    auto judge = [&](BOOL verified) {
      if (verified) {
        o_fValid = true;
      } else if (LastPlatformError() == static_cast<uint32_t>(m_oConst.NTE_BAD_SIGNATURE())) {
        o_fValid = false;  // a wrong signature is a verdict, not a failure
      } else {
        RaiseQuiv(KEY_ERROR_UNABLE_TO_VERIFY_SIGNATURE);
      }
    };
    if (UseWideEntryPoints()) {
      judge(Platform().CryptVerifySignatureW(hash, signature.data(), length, m_hKey, nullptr, 0));
    }
    if (UseNarrowEntryPoints()) {
      judge(Platform().CryptVerifySignatureA(hash, signature.data(), length, m_hKey, nullptr, 0));
    }
    if (!HashObject().Clear()) RaiseQuiv(HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT);
  });
}

// ---- import and export ----

HCRYPTKEY CRSAKeyPair::SessionKeyHandle(const Ref<CSessionKey>& i_oSessionKey) {
  HCRYPTKEY key = 0;
  if (i_oSessionKey.IsNothing()) return key;
  if (!i_oSessionKey->GetKeyHandle(key)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE);
  return key;
}

ByteArray CRSAKeyPair::ExportBlob(int32_t i_lBlobType, HCRYPTKEY i_hWrapKey) {
  ByteArray blob;
  DWORD length = 0;
  const DWORD type = static_cast<DWORD>(i_lBlobType);
  if (!Platform().CryptExportKey(m_hKey, i_hWrapKey, type, 0, blob.data(), &length)) {
    if (LastPlatformError() != static_cast<uint32_t>(m_oConst.ERROR_MORE_DATA())) {
      RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
    }
    blob = Sized(length);
    Platform().SetLastError(0);
  }
  if (!Platform().CryptExportKey(m_hKey, i_hWrapKey, type, 0, blob.data(), &length)) {
    RaiseQuiv(KEY_ERROR_CRYPTEXPORTKEY_FAILED);
  }
  blob.ReDimPreserve(static_cast<int64_t>(length) - 1);
  return blob;
}

bool CRSAKeyPair::UnloadPrivateKey(String& i_sKeyPair, DATA_FORMAT i_nUnloadFormat,
                                   const Ref<CSessionKey>& i_oSessionKey) {
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair.UnloadPrivateKey",
      [&] {
        if (!m_fHasKeyPair) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_DOES_NOT_HAVE_KEY_PAIR_HANDLE);
        if (m_fPublicOnly) RaiseQuiv(KEY_ERROR_KEY_PAIR_FN_ATTEMPTED_WITH_PUBLIC_KEY_HANDLE);
        const HCRYPTKEY wrapKey = SessionKeyHandle(i_oSessionKey);
        const ByteArray blob = ExportBlob(m_oConst.PRIVATEKEYBLOB(), wrapKey);
        if (!Converter().UnloadItem(blob, i_sKeyPair, i_nUnloadFormat, true)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD_RSA_PRIVATE_KEY);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"i_sKeyPair", i_sKeyPair);
        e.AddParam(u"i_nUnloadFormat", static_cast<int32_t>(i_nUnloadFormat));
      });
}

bool CRSAKeyPair::UnloadPublicKey(String& io_sPublicKey, DATA_FORMAT i_nUnloadFormat) {
  return Trap(
      m_oLastError, u"QUIV.CRSAKeyPair.UnloadPublicKey",
      [&] {
        if (HoldsNoKeys()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS);
        const ByteArray blob = ExportBlob(m_oConst.PUBLICKEYBLOB(), 0);
        if (!Converter().UnloadItem(blob, io_sPublicKey, i_nUnloadFormat, true)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"io_sPublicKey", io_sPublicKey);
        e.AddParam(u"i_nUnloadFormat", static_cast<int32_t>(i_nUnloadFormat));
      });
}

void CRSAKeyPair::TakeContainerKey() {
  HCRYPTKEY key = 0;
  if (!Platform().CryptGetUserKey(Context(), static_cast<DWORD>(m_nKeySpec), &key)) {
    RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_RSA_KEY_PAIR_HANDLE);
  }
  m_hKey = key;
}

ByteArray CRSAKeyPair::LoadBlob(const String& i_sText, DATA_FORMAT i_nFormat, int32_t i_lBlobType) {
  ByteArray blob;
  if (!Converter().LoadItem(i_sText, i_nFormat, blob)) {
    RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_DATA_TO_BYTE_ARRAY);
  }
  // The blob must be of the expected type and carry this object's key specification.
  int32_t keySpec = m_nKeySpec;
  if (!KeyTools().ValidateBlob(i_lBlobType, keySpec, blob)) RaiseQuiv(KEY_ERROR_WRONG_KEY_TYPE);
  return blob;
}

bool CRSAKeyPair::LoadKeyPair(const String& i_sKeyPair, DATA_FORMAT i_nLoadFormat,
                              const Ref<CSessionKey>& i_oSessionKey) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.LoadKeyPair", [&] {
    if (!m_oProvider->HasContext()) RaiseQuiv(GENERAL_ERROR_NO_CONTEXT);
    if (!Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES);
    if (i_nLoadFormat == CURRENT_KEY_CONTAINER) {
      TakeContainerKey();
    } else {
      const HCRYPTKEY unwrapKey = SessionKeyHandle(i_oSessionKey);
      const ByteArray blob = LoadBlob(i_sKeyPair, i_nLoadFormat, m_oConst.PRIVATEKEYBLOB());
      const DWORD flags = m_fUnloadable ? static_cast<DWORD>(m_oConst.CRYPT_EXPORTABLE()) : 0;
      HCRYPTKEY key = 0;
      if (!Platform().CryptImportKey(Context(), blob.data(), static_cast<DWORD>(blob.UBound() + 1),
                                     unwrapKey, flags, &key)) {
        RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_LOAD_RSA_KEY_PAIR);
      }
      m_hKey = key;
    }
    m_fHasKeyPair = true;
    m_fPublicOnly = false;
  });
}

bool CRSAKeyPair::LoadPublicKey(const String& i_sPublicKey, DATA_FORMAT i_nLoadFormat) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.LoadPublicKey", [&] {
    if (!Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES);
    if (i_nLoadFormat == CURRENT_KEY_CONTAINER) {
      // The container hands out its key pair, and the object then holds the pair.
      TakeContainerKey();
      m_fHasKeyPair = true;
      m_fPublicOnly = false;
      return;
    }
    const ByteArray blob = LoadBlob(i_sPublicKey, i_nLoadFormat, m_oConst.PUBLICKEYBLOB());
    HCRYPTKEY key = 0;
    if (!Platform().CryptImportKey(Context(), blob.data(), static_cast<DWORD>(blob.UBound() + 1), 0,
                                   static_cast<DWORD>(m_oConst.CRYPT_EXPORTABLE()), &key)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_LOAD_RSA_KEY);
    }
    m_hKey = key;
    m_fHasKeyPair = false;
    m_fPublicOnly = true;
  });
}

bool CRSAKeyPair::SetUnloadable(bool i_fUnloadable) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.SetUnloadable",
              [&] { m_fUnloadable = i_fUnloadable; });
}

// ---- IHash ----

bool CRSAKeyPair::WhatToHash(int16_t& o_nWhat) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.IHash_WhatToHash", [&] { o_nWhat = m_nHashView; });
}

bool CRSAKeyPair::GetDataAsByteArray(ByteArray& o_abData) {
  return Trap(m_oLastError, u"QUIV.CRSAKeyPair.IHash_GetDataAsByteArray", [&] {
    if (HoldsNoKeys()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS);
    if (HoldsBoth()) RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_CONTAINS_BOTH_PUBLIC_AND_KEY_PAIR_HANDLES);
    String text;
    if (m_nHashView == PRIVATE_EXCHANGE_KEY || m_nHashView == PRIVATE_SIGNATURE_KEY) {
      if (!m_fHasKeyPair || m_fPublicOnly) {
        RaiseQuiv(KEY_ERROR_KEY_PAIR_OBJECT_DOES_NOT_HAVE_KEY_PAIR_HANDLE);
      }
      if (!UnloadPrivateKey(text, STRING_VB)) {
        RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
      }
    } else if (m_nHashView == PUBLIC_EXCHANGE_KEY || m_nHashView == PUBLIC_SIGNATURE_KEY) {
      if (!UnloadPublicKey(text, STRING_VB)) {
        RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
      }
    } else {
      RaiseQuiv(HASH_ERROR_WHAT_TO_HASH_INCORRECTLY_SPECIFIED);
    }
    // The blob as STRING_VB carries it: the string's storage bytes, unconverted.
    o_abData = ByteArray(text.Bytes());
  });
}

bool CRSAKeyPair::GetSessionKeyHandle(HCRYPTKEY& /*o_lSessionKeyHandle*/) {
  // No trap: the failure reaches the caller as the call's own and is not recorded.
  RaiseQuiv(KEY_ERROR_THIS_METHOD_SHOULD_ONLY_BE_CALLED_FROM_A_SESSION_KEY_OBJECT);
}

}  // namespace quiv
