#include "keys/CKeyTools.h"

#include <array>
#include <string_view>

#include "automation/ErrObject.h"
#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"

namespace quiv {

namespace {

using platform::Platform;

// The code names KeyAlg_ID2Code tries, in order: where two names share a value (CALG_SHA and
// CALG_SHA1) the first one wins.
constexpr std::array<std::string_view, 35> kAlgorithmNames = {"CALG_MD2",
                                                              "CALG_MD4",
                                                              "CALG_MD5",
                                                              "CALG_SHA",
                                                              "CALG_SHA1",
                                                              "CALG_MAC",
                                                              "CALG_RSA_SIGN",
                                                              "CALG_DSS_SIGN",
                                                              "CALG_RSA_KEYX",
                                                              "CALG_DES",
                                                              "CALG_3DES_112",
                                                              "CALG_3DES",
                                                              "CALG_DESX",
                                                              "CALG_RC2",
                                                              "CALG_RC4",
                                                              "CALG_SEAL",
                                                              "CALG_DH_SF",
                                                              "CALG_DH_EPHEM",
                                                              "CALG_AGREEDKEY_ANY",
                                                              "CALG_KEA_KEYX",
                                                              "CALG_HUGHES_MD5",
                                                              "CALG_SKIPJACK",
                                                              "CALG_TEK",
                                                              "CALG_CYLINK_MEK",
                                                              "CALG_SSL3_SHAMD5",
                                                              "CALG_SSL3_MASTER",
                                                              "CALG_SCHANNEL_MASTER_HASH",
                                                              "CALG_SCHANNEL_MAC_KEY",
                                                              "CALG_SCHANNEL_ENC_KEY",
                                                              "CALG_PCT1_MASTER",
                                                              "CALG_SSL2_MASTER",
                                                              "CALG_TLS1_MASTER",
                                                              "CALG_RC5",
                                                              "CALG_HMAC",
                                                              "CALG_TLS1PRF"};

constexpr std::array<std::string_view, 4> kModeNames = {"CRYPT_MODE_ECB", "CRYPT_MODE_CBC",
                                                        "CRYPT_MODE_OFB", "CRYPT_MODE_CFB"};

int32_t ValueOf(std::string_view name) {
  CConstQUIV::Value value;
  CConstQUIV().Lookup(name, value);
  return value.integer;
}

}  // namespace

CKeyTools::~CKeyTools() = default;

bool CKeyTools::ValidateBlob(int32_t i_lBlobType, int32_t& io_lBlobAlgClass, ByteArray& io_abBlob) {
  return Trap(
      m_oLastError, u"QUIV.CKeyTools.ValidateBlob",
      [&] {
        const CConstQUIV k;
        const bool pairBlob = i_lBlobType == k.PUBLICKEYBLOB() || i_lBlobType == k.PRIVATEKEYBLOB();
        if (io_lBlobAlgClass == k.AT_KEYEXCHANGE() || io_lBlobAlgClass == k.AT_SIGNATURE()) {
          if (io_lBlobAlgClass == k.AT_KEYEXCHANGE()) {
            io_lBlobAlgClass = k.ALG_CLASS_KEY_EXCHANGE();
          }
          if (io_lBlobAlgClass == k.AT_SIGNATURE()) io_lBlobAlgClass = k.ALG_CLASS_SIGNATURE();
          if (!pairBlob)
            RaiseQuiv(DATA_FORMAT_ERROR_SESSION_CANNOT_LOAD_NON_RSA_KEY_BLOB_AS_RSA_KEY);
        } else if (io_lBlobAlgClass == k.ALG_CLASS_DATA_ENCRYPT()) {
          if (i_lBlobType != k.SIMPLEBLOB()) {
            RaiseQuiv(DATA_FORMAT_ERROR_SESSION_CANNOT_LOAD_NON_SESSION_KEY_BLOB_AS_SESSION_KEY);
          }
        } else {
          RaiseQuiv(DATA_FORMAT_ERROR_UNKNOWN_CIPHER_TYPE_SPECIFIED);
        }
        if (io_abBlob.At(0) != i_lBlobType) {
          if (i_lBlobType == k.PUBLICKEYBLOB()) {
            RaiseQuiv(DATA_FORMAT_ERROR_REQUESTED_KEY_IS_NOT_A_PUBLIC_RSA_KEY);
          }
          if (i_lBlobType == k.PRIVATEKEYBLOB()) {
            RaiseQuiv(DATA_FORMAT_ERROR_REQUESTED_KEY_IS_NOT_A_PRIVATE_RSA_KEY);
          }
          if (i_lBlobType == k.SIMPLEBLOB()) {
            RaiseQuiv(DATA_FORMAT_ERROR_REQUESTED_KEY_IS_NOT_A_SESSION_KEY);
          }
        }
        // BLOBHEADER.aiKeyAlg, low word only: the upper two bytes are not looked at.
        const int32_t algId = io_abBlob.At(4) + 256 * io_abBlob.At(5);
        const int32_t algClass = GetAlgClass(algId);
        const int32_t algType = GetAlgType(algId);
        if (algClass == io_lBlobAlgClass) return;
        // The type only matters once the class is already wrong.
        if (algType != k.ALG_TYPE_RSA() && algType != k.ALG_TYPE_STREAM() &&
            algType != k.ALG_TYPE_BLOCK()) {
          RaiseQuiv(
              DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_KEY_ALGORITHM_TYPE_UNSUPPORTED_BY_PROV_RSA_FULL_PROVIDERS);
        }
        if (io_lBlobAlgClass == k.ALG_CLASS_KEY_EXCHANGE()) {
          RaiseQuiv(DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_A_NON_EXCHANGE_KEY);
        }
        if (io_lBlobAlgClass == k.ALG_CLASS_SIGNATURE()) {
          RaiseQuiv(DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_A_NON_SIGNATURE_KEY);
        }
        if (io_lBlobAlgClass == k.ALG_CLASS_DATA_ENCRYPT()) {
          RaiseQuiv(DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_A_NON_SESSION_KEY);
        }
        RaiseQuiv(
            DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_KEY_ALGORITHM_CLASS_UNSUPPORTED_BY_PROV_RSA_FULL_PROVIDERS);
      },
      [&](CErrHandler& e) {
        // A rejected blob is never used afterwards.
        io_abBlob = ByteArray();
        e.AddParam(u"i_lBlobType", i_lBlobType);
        e.AddParam(u"i_lBlobAlgClass", io_lBlobAlgClass);
      });
}

bool CKeyTools::GetKeyParam(HCRYPTKEY i_hKey, int32_t i_lParam, Variant& o_vValue) {
  return Trap(m_oLastError, u"QUIV.CKeyTools.GetKeyParam", [&] {
    const CConstQUIV k;
    ByteArray buffer;
    DWORD length = 0;
    const DWORD param = static_cast<DWORD>(i_lParam);
    if (!Platform().CryptGetKeyParam(i_hKey, param, buffer.data(), &length, 0)) {
      if (LastPlatformError() != static_cast<uint32_t>(k.ERROR_MORE_DATA())) {
        RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
      }
      buffer.ReDimPreserve(static_cast<int64_t>(length) - 1);
    }
    if (!Platform().CryptGetKeyParam(i_hKey, param, buffer.data(), &length, 0)) {
      RaiseQuiv(KEY_ERROR_CRYPTGETKEYPARAM_FAILED);
    }
    for (const int32_t numeric :
         {k.KP_ALGID(), k.KP_BLOCKLEN(), k.KP_KEYLEN(), k.KP_MODE(), k.KP_MODE_BITS(),
          k.KP_PADDING(), k.KP_EFFECTIVE_KEYLEN(), k.KP_PERMISSIONS()}) {
      if (i_lParam == numeric) {
        // Only the two low bytes: every value read this way fits in 16 bits.
        o_vValue = Variant(static_cast<int32_t>(buffer.At(0) + 256 * buffer.At(1)));
        return;
      }
    }
    if (i_lParam == k.KP_IV() || i_lParam == k.KP_SALT()) {
      o_vValue = Variant(buffer);
      return;
    }
    RaiseQuiv(KEY_ERROR_UNKNOWN_KEY_PARAMETER);
  });
}

bool CKeyTools::ChangeKeyPermissions(const Ref<CProvider>& i_oProvider, HCRYPTKEY i_hKey,
                                     bool i_fEncrypt, bool i_fDecrypt, bool i_fExport, bool i_fRead,
                                     bool i_fWrite, bool i_fMAC) {
  return Trap(m_oLastError, u"QUIV.CKeyTools.ChangeKeyPermissions", [&] {
    const CConstQUIV k;
    String name;
    // Reversed on purpose, as it has always been: a provider that reports its name stops here.
    if (i_oProvider->GetProviderName(name)) RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME);
    if (name == k.MS_DEF_PROV()) RaiseQuiv(GENERAL_ERROR_BASE_PROVIDER_IGNORES_KEY_SETTINGS);
    HCRYPTKEY duplicate = 0;
    if (!Platform().CryptDuplicateKey(i_hKey, nullptr, 0, &duplicate)) {
      RaiseQuiv(KEY_ERROR_INVALID_KEY_HANDLE);
    }
    if (!Platform().CryptDestroyKey(duplicate)) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
    int32_t mask = 0;
    if (i_fEncrypt) mask = k.CRYPT_ENCRYPT();
    if (i_fDecrypt) mask |= k.CRYPT_DECRYPT();
    if (i_fExport) mask |= k.CRYPT_EXPORT();
    if (i_fRead) mask |= k.CRYPT_READ();
    if (i_fWrite) mask |= k.CRYPT_WRITE();
    if (i_fMAC) mask |= k.CRYPT_MAC();
    // The all-ones branch cannot be reached with six flags (at most 63); it stays as written.
    std::array<BYTE, 4> buffer{};
    if (mask == 255) {
      buffer.fill(255);
    } else {
      buffer[0] = static_cast<BYTE>(mask);
    }
    if (!Platform().CryptSetKeyParam(i_hKey, static_cast<DWORD>(k.KP_PERMISSIONS()), buffer.data(),
                                     0)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_KEY_PERMISSIONS);
    }
  });
}

bool CKeyTools::GetKeyPermissions(const Ref<CProvider>& i_oProvider, HCRYPTKEY i_hKey,
                                  int32_t /*i_lUnused*/, bool& o_fEncrypt, bool& o_fDecrypt,
                                  bool& o_fExport, bool& o_fRead, bool& o_fWrite, bool& o_fMAC) {
  return Trap(m_oLastError, u"QUIV.CKeyTools.GetKeyPermissions", [&] {
    const CConstQUIV k;
    String name;
    if (!i_oProvider->GetProviderName(name)) RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME);
    if (name == k.MS_DEF_PROV()) RaiseQuiv(GENERAL_ERROR_BASE_PROVIDER_IGNORES_KEY_SETTINGS);
    Variant value;
    if (!GetKeyParam(i_hKey, k.KP_PERMISSIONS(), value)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_PERMISSIONS);
    }
    const int32_t mask = value.ToLong();
    o_fEncrypt = (mask & k.CRYPT_ENCRYPT()) != 0;
    o_fDecrypt = (mask & k.CRYPT_DECRYPT()) != 0;
    o_fExport = (mask & k.CRYPT_EXPORT()) != 0;
    o_fRead = (mask & k.CRYPT_READ()) != 0;
    o_fWrite = (mask & k.CRYPT_WRITE()) != 0;
    o_fMAC = (mask & k.CRYPT_MAC()) != 0;
  });
}

int32_t CKeyTools::AlgField(int32_t iAlgID, int32_t i_lMask, const char16_t* i_sRaiseSource,
                            const char16_t* i_sSource) {
  int32_t field = 0;
  Trap(
      m_oLastError, i_sSource,
      [&] {
        if (iAlgID < 0) {
          ErrObject().Raise(
              UNDEFINED_ERROR, String(i_sRaiseSource),
              String(u"Negative input not allowed, received:") + String::FromInt(iAlgID));
        }
        field = iAlgID & i_lMask;
      },
      [&](CErrHandler& e) { e.AddParam(u"iAlgID", iAlgID); });
  return field;
}

int32_t CKeyTools::GetAlgClass(int32_t iAlgID) {
  return AlgField(iAlgID, 0xE000, u"Cryptography.CKeyTools.GetAlgClass",
                  u"QUIV.CKeyTools.GetAlgClass");
}

int32_t CKeyTools::GetAlgType(int32_t iAlgID) {
  return AlgField(iAlgID, 0x1E00, u"Cryptography.CKeyTools.GetAlgType",
                  u"QUIV.CKeyTools.GetAlgType");
}

int32_t CKeyTools::GetAlgSID(int32_t iAlgID) {
  return AlgField(iAlgID, 0x01FF, u"Cryptography.CKeyTools.GetAlgSID", u"QUIV.CKeyTools.GetAlgSID");
}

bool CKeyTools::KeyAlg_ID2Code(int32_t i_lAlgID, String& o_sCode) {
  return Trap(m_oLastError, u"QUIV.CKeyTools.KeyAlg_ID2Code", [&] {
    for (const std::string_view name : kAlgorithmNames) {
      if (ValueOf(name) == i_lAlgID) {
        o_sCode = String::FromUtf8(name);
        return;
      }
    }
    o_sCode = u"(Unknown Key Algorithm ID!)";
    RaiseQuiv(KEY_ERROR_UNKNOWN_KEY_ALGORITHM_ID);
  });
}

bool CKeyTools::CipherMode_ID2Code(int32_t i_lMode, String& o_sCode) {
  // The other routine's source, as callers and logs have always seen it.
  return Trap(m_oLastError, u"QUIV.CKeyTools.KeyAlg_ID2Code", [&] {
    for (const std::string_view name : kModeNames) {
      if (ValueOf(name) == i_lMode) {
        o_sCode = String::FromUtf8(name);
        return;
      }
    }
    RaiseQuiv(KEY_ERROR_UNKNOWN_CIPHER_MODE);
  });
}

bool CKeyTools::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CKeyTools.OnStartPage", i_oScript);
}

}  // namespace quiv
