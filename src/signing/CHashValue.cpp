#include "signing/CHashValue.h"

#include <vector>

#include "data/CConvert.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "keys/CKeyTools.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"

namespace quiv {

namespace {
using platform::Platform;
}  // namespace

CHashValue::CHashValue() {
  Trap(m_oLastError, u"QUIV.CHashValue.Class_Initialize",
       [&] { m_lHashAlgID = m_oConst.CALG_MD5(); });
}

CHashValue::~CHashValue() {
  // After Terminate the handle is gone; a hash object still held is released quietly.
  if (!m_fTerminated && m_fHasHash) Platform().CryptDestroyHash(m_hHash);
}

void CHashValue::Terminate() {
  Trap(m_oLastError, u"QUIV.CRSAKeyPair.Class_Terminate", [&] {
    m_fTerminated = true;
    if (!Clear()) RaiseQuiv(HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT);
  });
  if (!m_oProvider.IsNothing()) m_oProvider.SetNothing();
  if (!m_oConvert.IsNothing()) m_oConvert.SetNothing();
  if (!m_oKeyTools.IsNothing()) m_oKeyTools.SetNothing();
  if (!m_oLastError.IsNothing()) m_oLastError.SetNothing();
}

bool CHashValue::SetProvider(const Ref<CProvider>& i_oProvider) {
  return Trap(m_oLastError, u"QUIV.CHashValue.Set Provider", [&] { m_oProvider = i_oProvider; });
}

CConvert& CHashValue::Converter() {
  if (m_oConvert.IsNothing()) m_oConvert = MakeRef<CConvert>();
  return *m_oConvert;
}

CKeyTools& CHashValue::KeyTools() {
  if (m_oKeyTools.IsNothing()) m_oKeyTools = MakeRef<CKeyTools>();
  return *m_oKeyTools;
}

bool CHashValue::Clear() {
  return Trap(m_oLastError, u"QUIV.CHashValue.Clear", [&] {
    if (m_fHasHash && !Platform().CryptDestroyHash(m_hHash)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_DESTROY_HASH);
    }
    m_fHasHash = false;
  });
}

void CHashValue::CreateHashObject() {
  HCRYPTHASH hash = 0;
  if (!Platform().CryptCreateHash(m_oProvider->ContextHandle(), static_cast<ALG_ID>(m_lHashAlgID),
                                  0, 0, &hash)) {
    RaiseQuiv(HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT);
  }
  m_hHash = hash;
  m_fHasHash = true;
}

void CHashValue::EnsureHashObject() {
  // An existing object is reused, which is what makes successive calls one running hash.
  if (!m_fHasHash) CreateHashObject();
}

void CHashValue::CheckSessionKeyAllowed() {
  int32_t type = 0;
  if (!m_oProvider->GetProviderTypeID(type))
    RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_TYPE_ID);
  if (type != m_oConst.PROV_RSA_FULL()) RaiseQuiv(PROVIDER_ERROR_UNKNOWN_PROVIDER_TYPE);
  // Compared with the sub-identifiers, so no full keyed-hash ALG_ID matches: a key given with
  // a full RSA provider is always refused, and it never reaches the platform.
  if (m_lHashAlgID != m_oConst.ALG_SID_HMAC() && m_lHashAlgID != m_oConst.ALG_SID_MAC()) {
    RaiseQuiv(HASH_ERROR_KEY_PASSED_IN_FOR_UNKEYED_HASH);
  }
}

bool CHashValue::HashCore(const Ref<IHash>& i_oHashee, bool i_fKeyGiven) {
  return Trap(m_oLastError, u"QUIV.CHashValue.Hash", [&] {
    int16_t what = UNSPECIFIED;
    if (!i_oHashee->WhatToHash(what)) RaiseQuiv(HASH_ERROR_UNABLE_TO_DETERMINE_WHAT_TO_HASH);
    HCRYPTKEY key = 0;
    ByteArray data;
    if (what == SESSION_KEY) {
      if (!i_oHashee->GetSessionKeyHandle(key)) {
        RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE);
      }
    } else if (what == UNSPECIFIED) {
      RaiseQuiv(HASH_ERROR_WHAT_TO_HASH_NOT_SPECIFIED);
    } else {
      if (!i_oHashee->GetDataAsByteArray(data)) {
        RaiseQuiv(SIGNATURE_ERROR_UNABLE_TO_GET_DATA_TO_SIGN_OR_VERIFY);
      }
      // A one-byte array is the automation layer's empty array, whatever its byte.
      if (data.UBound() == 0) RaiseQuiv(HASH_ERROR_NO_DATA_TO_HASH);
    }
    if (i_fKeyGiven) CheckSessionKeyAllowed();
    EnsureHashObject();
    if (key > 0) {
      if (!Platform().CryptHashSessionKey(m_hHash, key, 0)) {
        RaiseQuiv(HASH_ERROR_UNABLE_TO_HASH_SESSION_KEY);
      }
    } else if (!Platform().CryptHashData(m_hHash, data.data(),
                                         static_cast<DWORD>(data.UBound() + 1), 0)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_HASH_THE_DATA);
    }
  });
}

bool CHashValue::Hash(const Ref<IHash>& i_oHashee) {
  return HashCore(i_oHashee, false);
}

bool CHashValue::Hash(const Ref<IHash>& i_oHashee, const Ref<CSessionKey>& i_oSessionKey) {
  return HashCore(i_oHashee, !i_oSessionKey.IsNothing());
}

bool CHashValue::GetHashParam(HCRYPTHASH& /*io_hHashIgnored*/, int32_t i_lParam,
                              Variant& o_vValue) {
  return Trap(m_oLastError, u"QUIV.CHashValue.GetHashParam", [&] {
    if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
    std::vector<uint8_t> buffer(1, 0);
    DWORD length = 0;
    if (!Platform().CryptGetHashParam(m_hHash, static_cast<DWORD>(i_lParam), buffer.data(), &length,
                                      0)) {
      if (Platform().GetLastError() != static_cast<DWORD>(m_oConst.ERROR_MORE_DATA())) {
        RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
      }
      buffer.assign(length, 0);
      Platform().SetLastError(0);
    }
    if (!Platform().CryptGetHashParam(m_hHash, static_cast<DWORD>(i_lParam), buffer.data(), &length,
                                      0)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_PROPERTY);
    }
    if (i_lParam == m_oConst.HP_ALGID() || i_lParam == m_oConst.HP_HASHSIZE()) {
      // Two bytes, little-endian, are enough for every hash ALG_ID's low word and size.
      const int32_t low = buffer.empty() ? 0 : buffer[0];
      const int32_t high = buffer.size() > 1 ? buffer[1] : 0;
      o_vValue = Variant(low + 256 * high);
    } else if (i_lParam == m_oConst.HP_HASHVAL()) {
      o_vValue = Variant(ByteArray(std::vector<uint8_t>(buffer.begin(), buffer.end())));
    } else {
      RaiseQuiv(HASH_ERROR_UNKNOWN_HASH_PROPERTY);
    }
  });
}

bool CHashValue::GetHashHandle(HCRYPTHASH& o_hHash) {
  return Trap(m_oLastError, u"QUIV.CHashValue.GetHashHandle", [&] {
    if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
    o_hHash = m_hHash;
  });
}

bool CHashValue::GetHashValue(ByteArray& o_abHashValue) {
  return Trap(m_oLastError, u"QUIV.CHashValue.GetHashValue", [&] {
    if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
    Variant value;
    if (!GetHashParam(m_hHash, m_oConst.HP_HASHVAL(), value)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_VALUE);
    }
    o_abHashValue = value.ToByteArray();
  });
}

bool CHashValue::GetHashAlgorithmID(int32_t& o_lHashAlgorithmID) {
  return Trap(m_oLastError, u"QUIV.CHashValue.GetHashAlgorithm", [&] {
    if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
    Variant value;
    if (!GetHashParam(m_hHash, m_oConst.HP_ALGID(), value)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_ALGORITHM_ID);
    }
    o_lHashAlgorithmID = value.ToLong();
  });
}

bool CHashValue::GetHashValueLengthInBytes(int16_t& o_nHashSize) {
  return Trap(m_oLastError, u"QUIV.CHashValue.GetHashValueLength", [&] {
    if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
    Variant value;
    if (!GetHashParam(m_hHash, m_oConst.HP_HASHSIZE(), value)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_SIZE);
    }
    o_nHashSize = value.ToInteger();
  });
}

bool CHashValue::SetHashAlgorithmID(int32_t i_lHashAlgorithmID) {
  return Trap(m_oLastError, u"QUIV.CHashValue.SetHashAlgorithmID", [&] {
    // The key tools refuse a negative identifier (class 0), whatever its low bits say.
    if (KeyTools().GetAlgClass(i_lHashAlgorithmID) != m_oConst.ALG_CLASS_HASH()) {
      RaiseQuiv(HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID);
    }
    m_lHashAlgID = i_lHashAlgorithmID;
  });
}

bool CHashValue::SetHashAlgorithmCode(const String& o_sHashAlgorithmCode) {
  return Trap(m_oLastError, u"QUIV.CHashValue.SetHashAlgorithmCode", [&] {
    const CConstQUIV& k = m_oConst;
    const std::pair<const char16_t*, int32_t> table[] = {
        {u"CALG_MD2", k.CALG_MD2()},   {u"CALG_MD5", k.CALG_MD5()}, {u"CALG_SHA", k.CALG_SHA()},
        {u"CALG_SHA1", k.CALG_SHA1()}, {u"CALG_MAC", k.CALG_MAC()}, {u"CALG_HMAC", k.CALG_HMAC()}};
    for (const auto& [name, id] : table) {
      if (o_sHashAlgorithmCode == String(name)) {
        m_lHashAlgID = id;
        return;
      }
    }
    RaiseQuiv(HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID);
  });
}

bool CHashValue::GetHashAlgorithmCode(String& o_sHashAlgorithmCode) {
  return Trap(m_oLastError, u"QUIV.CHashValue.GetHashAlgorithmCode", [&] {
    int32_t id = 0;
    if (!GetHashAlgorithmID(id)) RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_ALGORITHM_ID);
    const CConstQUIV& k = m_oConst;
    // CALG_SHA and CALG_SHA1 share a value: the first match, "CALG_SHA", is what SHA-1 reports.
    const std::pair<const char16_t*, int32_t> table[] = {
        {u"CALG_MAC", k.CALG_MAC()}, {u"CALG_MD2", k.CALG_MD2()},   {u"CALG_MD5", k.CALG_MD5()},
        {u"CALG_SHA", k.CALG_SHA()}, {u"CALG_SHA1", k.CALG_SHA1()}, {u"CALG_HMAC", k.CALG_HMAC()}};
    for (const auto& [name, value] : table) {
      if (id == value) {
        o_sHashAlgorithmCode = String(name);
        return;
      }
    }
    RaiseQuiv(HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID);
  });
}

bool CHashValue::LoadHashValue(const String& i_sHash, DATA_FORMAT i_nLoadFormat,
                               int32_t i_lHashAlgID) {
  return Trap(m_oLastError, u"QUIV.CHashValue.LoadHashValue", [&] {
    if (!Clear()) RaiseQuiv(HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT);
    if (!SetHashAlgorithmID(i_lHashAlgID)) RaiseQuiv(HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID);
    CreateHashObject();
    ByteArray value;
    if (!Converter().LoadItem(i_sHash, i_nLoadFormat, value)) {
      RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_DATA_TO_BYTE_ARRAY);
    }
    // The length is not refused here; the provider reads the algorithm's size from the
    // pointer, so a shorter value is zero-padded to keep that read inside our buffer.
    std::vector<uint8_t> bytes(value.data(), value.data() + value.UBound() + 1);
    Variant size;
    if (GetHashParam(m_hHash, m_oConst.HP_HASHSIZE(), size) &&
        bytes.size() < static_cast<size_t>(size.ToLong())) {
      bytes.resize(static_cast<size_t>(size.ToLong()), 0);
    }
    if (!Platform().CryptSetHashParam(m_hHash, static_cast<DWORD>(m_oConst.HP_HASHVAL()),
                                      bytes.data(), 0)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_IMPORT_HASH);
    }
  });
}

bool CHashValue::UnloadHashValue(String& io_sHash, DATA_FORMAT i_nUnloadFormat) {
  // No trap of its own: the failure escapes to the caller and LastError keeps what it had.
  if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
  Variant value;
  if (!GetHashParam(m_hHash, m_oConst.HP_HASHVAL(), value)) {
    RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_VALUE);
  }
  if (!Converter().UnloadItem(value.ToByteArray(), io_sHash, i_nUnloadFormat, true)) {
    RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
  }
  return true;
}

bool CHashValue::UnloadFingerprint(String& io_sFPrint, DATA_FORMAT i_nUnloadFormat,
                                   FINGERPRINT_FORMAT i_nFPrintFormatting) {
  return Trap(m_oLastError, u"QUIV.CHashValue.UnloadFingerprint", [&] {
    if (!m_fHasHash) RaiseQuiv(HASH_ERROR_HASH_OBJECT_DOES_NOT_CONTAIN_A_HASH);
    Variant value;
    if (!GetHashParam(m_hHash, m_oConst.HP_HASHVAL(), value)) {
      RaiseQuiv(HASH_ERROR_UNABLE_TO_GET_HASH_VALUE);
    }
    if (!Converter().UnloadFingerprint(value.ToByteArray(), i_nFPrintFormatting, io_sFPrint,
                                       i_nUnloadFormat)) {
      RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
    }
  });
}

bool CHashValue::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CHashValue.OnStartPage", i_oScript);
}

}  // namespace quiv
