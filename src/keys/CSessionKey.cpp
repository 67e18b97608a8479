#include "keys/CSessionKey.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "automation/RunTime.h"
#include "data/CConvert.h"
#include "data/CMessagetext.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "keys/CKeyTools.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"

namespace quiv {

namespace {

using platform::Platform;

// What a final block's padding can add to a message: one block of DES, 3DES or RC2, the longest
// block these providers have.
constexpr size_t kPaddingRoom = 8;

// How many leading bytes of the plaintext a failed Encrypt records.
constexpr size_t kRecordedPlaintextChars = 10;

// Destroys a hash object when a derivation step fails after the hash was made. It runs while the
// raised error unwinds, after the error has taken the platform's last error, and a successful
// destroy leaves the last error alone, so the record still shows the failing call's code.
class HashGuard final {
 public:
  explicit HashGuard(HCRYPTHASH& hash) : m_hash(hash) {}
  ~HashGuard() {
    if (m_hash != 0) Platform().CryptDestroyHash(m_hash);
  }
  HashGuard(const HashGuard&) = delete;
  HashGuard& operator=(const HashGuard&) = delete;

 private:
  HCRYPTHASH& m_hash;
};

// The plaintext's first bytes as text, each byte one character (the single-byte code page's
// view of the data), for the failure record.
String LeadingBytesAsText(const ByteArray& i_abData) {
  std::u16string text;
  const size_t count = std::min(i_abData.size(), kRecordedPlaintextChars);
  for (size_t i = 0; i < count; ++i) text.push_back(static_cast<char16_t>(i_abData[i]));
  return String(text);
}

// The pass phrase and one terminating NUL as UTF-16LE: 2 x (length + 1) bytes. Other
// implementations hash exactly these bytes, so a phrase yields the same key everywhere.
std::vector<uint8_t> PhraseBytes(const String& i_sPhrase) {
  std::vector<uint8_t> bytes;
  bytes.reserve(2 * (i_sPhrase.Length() + 1));
  for (const char16_t unit : i_sPhrase.u16()) {
    bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<uint8_t>(unit >> 8));
  }
  bytes.push_back(0);
  bytes.push_back(0);
  return bytes;
}

// The caller's amount squared (the Final flag), written back; overflow is the run time's error.
void SquareAmount(int32_t& io_lAmount) {
  io_lAmount = CLng(static_cast<int64_t>(io_lAmount) * io_lAmount);
}

}  // namespace

CSessionKey::CSessionKey() {
  Trap(m_oLastError, u"QUIV.CSessionKey.Class_Initialize", [&] {
    SetDefaultKeySettings();
    m_fHasKey = false;
  });
}

CSessionKey::~CSessionKey() {
  // Terminate hands the key to the platform's context teardown; a key still held by an object
  // that was simply dropped is destroyed here so that the handle does not outlive its owner.
  if (!m_fTerminated && m_fHasKey) Platform().CryptDestroyKey(m_hKey);
}

// --- Helpers ---

CKeyTools& CSessionKey::KeyTools() {
  if (m_oKeyTools.IsNothing()) m_oKeyTools = MakeRef<CKeyTools>();
  return *m_oKeyTools;
}

CConvert& CSessionKey::Converter() {
  if (m_oConvert.IsNothing()) m_oConvert = MakeRef<CConvert>();
  return *m_oConvert;
}

HCRYPTPROV CSessionKey::Context() const {
  return m_oProvider->ContextHandle();
}

void CSessionKey::RequireKey() const {
  if (!m_fHasKey) RaiseQuiv(KEY_ERROR_KEY_OBJECT_DOES_NOT_HAVE_SESSION_KEY_HANDLE);
}

void CSessionKey::RequireBlockCipher() {
  // The algorithm setting decides, not the key: this is what the next generation makes.
  if (KeyTools().GetAlgType(m_lKeyAlgID) != m_oConst.ALG_TYPE_BLOCK()) {
    RaiseQuiv(KEY_ERROR_NOT_A_BLOCK_CIPHER);
  }
}

int32_t CSessionKey::BlockBytes() {
  int32_t bits = 0;
  if (!GetBlockLengthInBits(bits)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH);
  if (bits % 8 != 0) RaiseQuiv(KEY_ERROR_BLOCK_LENGTH_NOT_MULTIPLE_OF_EIGHT);
  return bits / 8;
}

// A one-byte key parameter in the DWORD the provider reads; a value outside 0..255 is the run
// time's overflow, raised before the platform is called.
void CSessionKey::WriteByteParam(int32_t i_lParam, int32_t i_lValue) {
  const uint8_t buffer[4] = {CByte(i_lValue), 0, 0, 0};
  if (!Platform().CryptSetKeyParam(m_hKey, static_cast<DWORD>(i_lParam), buffer, 0)) {
    RaiseQuiv(i_lParam == m_oConst.KP_MODE() ? KEY_ERROR_UNABLE_TO_SET_CIPHER_MODE
                                             : KEY_ERROR_UNABLE_TO_SET_FEEDBACK_BITS);
  }
}

// The key length in bits in the upper 16 bits of CryptGenKey's and CryptDeriveKey's flags.
int32_t CSessionKey::LengthFlags() const {
  const double low = static_cast<double>(m_nKeyLength % 256) * 65536.0;
  const double high = static_cast<double>(m_nKeyLength / 256) * 16777216.0;
  return CLng(low + high);
}

// Hashes the phrase and derives the key from the hash into m_hKey.
void CSessionKey::DeriveFromPhrase(int32_t i_lFlags) {
  HCRYPTHASH hash = 0;
  if (!Platform().CryptCreateHash(Context(), static_cast<ALG_ID>(m_lHashAlgID), 0, 0, &hash)) {
    RaiseQuiv(HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT);
  }
  HashGuard guard(hash);
  const std::vector<uint8_t> data = PhraseBytes(m_sKeyPhrase);
  if (!Platform().CryptHashData(hash, data.data(), static_cast<DWORD>(data.size()), 0)) {
    RaiseQuiv(HASH_ERROR_UNABLE_TO_HASH_THE_DATA);
  }
  if (!Platform().CryptDeriveKey(Context(), static_cast<ALG_ID>(m_lKeyAlgID), hash,
                                 static_cast<DWORD>(i_lFlags), &m_hKey)) {
    RaiseQuiv(KEY_ERROR_UNABLE_TO_DERIVE_KEY);
  }
  const HCRYPTHASH used = hash;
  hash = 0;  // released below, whatever the answer: the guard must not try again
  if (!Platform().CryptDestroyHash(used)) RaiseQuiv(KEY_ERROR_UNABLE_TO_RELEASE_HASH_HANDLE);
}

// --- Settings and generation ---

bool CSessionKey::SetDefaultKeySettings() {
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetDefaultKeySettings", [&] {
    m_lKeyAlgID = m_oConst.CALG_RC2();
    m_lHashAlgID = m_oConst.CALG_MD5();
    m_nKeyLength = 0;
    m_fUnloadable = true;
    m_sKeyPhrase = String();
  });
}

bool CSessionKey::SetKeyAlgorithmID(int32_t i_lKeyAlgID) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetKeyAlgorithmID", [&] {
    if (KeyTools().GetAlgClass(i_lKeyAlgID) != m_oConst.ALG_CLASS_DATA_ENCRYPT()) {
      RaiseQuiv(KEY_ERROR_NOT_A_SYMMETRIC_KEY_ALGORITHM);
    }
    m_lKeyAlgID = i_lKeyAlgID;
  });
}

bool CSessionKey::SetHashAlgorithmID(int32_t i_lHashAlgID) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetHashAlgorithmID", [&] {
    if (KeyTools().GetAlgClass(i_lHashAlgID) != m_oConst.ALG_CLASS_HASH()) {
      RaiseQuiv(HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID);
    }
    m_lHashAlgID = i_lHashAlgID;
  });
}

bool CSessionKey::SetKeyLength(int32_t i_lKeyLen) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetKeyLength", [&] {
    if (i_lKeyLen < 0) RaiseQuiv(KEY_ERROR_BAD_KEY_LENGTH);
    m_nKeyLength = CInt(i_lKeyLen);  // the setting is 16-bit: above 32767 overflows
  });
}

bool CSessionKey::SetKeyPhrase(const String& i_sKeyPhrase) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetKeyPhrase", [&] {
    // A blank phrase never clears one; SetDefaultKeySettings does.
    if (!i_sKeyPhrase.Trim().IsEmpty()) m_sKeyPhrase = i_sKeyPhrase;
  });
}

bool CSessionKey::SetUnloadable(bool i_fKeyUnloadable) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetUnloadable",
              [&] { m_fUnloadable = i_fKeyUnloadable; });
}

bool CSessionKey::GenerateSessionKey() {
  int32_t flags = 0;
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.GenerateSessionKey",
      [&] {
        if (!Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
        flags = LengthFlags();
        if (m_fUnloadable) flags |= m_oConst.CRYPT_EXPORTABLE();
        flags |= m_oConst.CRYPT_NO_SALT();  // keys of this library never carry salt
        if (m_sKeyPhrase.IsEmpty()) {
          if (!Platform().CryptGenKey(Context(), static_cast<ALG_ID>(m_lKeyAlgID),
                                      static_cast<DWORD>(flags), &m_hKey)) {
            RaiseQuiv(KEY_ERROR_UNABLE_TO_CREATE_KEY);
          }
        } else {
          DeriveFromPhrase(flags);
        }
        m_fHasKey = true;
        if (!IfRC2ChangeLength()) {
          // The platform key is not destroyed here; the object just stops holding it.
          m_fHasKey = false;
          RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH);
        }
      },
      [&](CErrHandler& e) {
        // The phrase is recorded in plain, as every report of this routine always has.
        e.AddParam(u"keyphrase", m_sKeyPhrase);
        e.AddParam(u"key len", m_nKeyLength);
        e.AddParam(u"unloadable", flags & m_oConst.CRYPT_EXPORTABLE());
      });
}

bool CSessionKey::Clear() {
  return Trap(m_oLastError, u"QUIV.CSessionKey.Clear", [&] {
    if (!m_fHasKey) return;
    if (!Platform().CryptDestroyKey(m_hKey)) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
    m_fHasKey = false;
    m_hKey = 0;
  });
}

// --- RC2 effective length ---

bool CSessionKey::IfRC2ChangeLength() {
  return Trap(m_oLastError, u"QUIV.CSessionKey.IfRC2ChangeLength", [&] {
    String providerName;
    if (!m_oProvider->GetProviderName(providerName)) {
      RaiseQuiv(PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME);
    }
    int32_t algId = 0;
    if (!GetKeyAlgorithmID(algId)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID);
    // The Enhanced provider keys RC2 with an effective length that need not follow the key
    // length; other implementations use the key length, so make it so.
    if (providerName != m_oConst.MS_ENHANCED_PROV() || algId != m_oConst.CALG_RC2()) return;
    int32_t effective = 0;
    if (!GetRC2KeyLength(effective)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_LENGTH);
    if (effective < 40) return;
    const int32_t wanted = m_nKeyLength == 0 ? 128 : m_nKeyLength;
    if (!ChangeRC2KeyLength(wanted)) RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH);
  });
}

bool CSessionKey::ChangeRC2KeyLength(int32_t i_lKeyLen) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.ChangeRC2KeyLength", [&] {
    if (m_lKeyAlgID != m_oConst.CALG_RC2()) RaiseQuiv(KEY_ERROR_CAN_ONLY_SET_RC2_KEY_LENGTHS);
    // KP_EFFECTIVE_KEYLEN takes a little-endian DWORD.
    const uint8_t buffer[4] = {CByte(i_lKeyLen % 256), CByte((i_lKeyLen % 65536) / 256), 0, 0};
    if (!Platform().CryptSetKeyParam(m_hKey, static_cast<DWORD>(m_oConst.KP_EFFECTIVE_KEYLEN()),
                                     buffer, 0)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH);
    }
    m_nKeyLength = CInt(i_lKeyLen);
  });
}

bool CSessionKey::GetRC2KeyLength(int32_t& o_lKeyLen) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetRC2KeyLength", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_EFFECTIVE_KEYLEN(), value)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_EFFECTIVE_KEYLENGTH);
    }
    o_lKeyLen = value.ToLong();
  });
}

// --- The held key ---

bool CSessionKey::GetKeyHandle(HCRYPTKEY& o_hKey) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetKeyHandle", [&] {
    RequireKey();
    o_hKey = m_hKey;
  });
}

bool CSessionKey::GetKeyParam(int32_t i_lParam, Variant& o_vValue) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetKeyParam", [&] {
    RequireKey();
    if (!KeyTools().GetKeyParam(m_hKey, i_lParam, o_vValue)) {
      RaiseQuiv(KEY_ERROR_CRYPTGETKEYPARAM_FAILED);
    }
  });
}

bool CSessionKey::GetKeyAlgorithmID(int32_t& o_lKeyAlgID) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetKeyAlgorithmID", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_ALGID(), value)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID);
    }
    o_lKeyAlgID = value.ToLong();
  });
}

bool CSessionKey::GetKeyAlgorithmCode(String& o_sKeyAlgCode) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetKeyAlgorithmCode", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_ALGID(), value)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID);
    }
    // An unknown identifier leaves the tools' "(Unknown Key Algorithm ID!)" in the output.
    if (!KeyTools().KeyAlg_ID2Code(value.ToLong(), o_sKeyAlgCode)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_CODE);
    }
  });
}

bool CSessionKey::GetBlockLengthInBits(int32_t& o_lBlockLength) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetBlockLength", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_BLOCKLEN(), value)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH);
    }
    o_lBlockLength = value.ToLong();
  });
}

bool CSessionKey::GetBlockLengthInBytes(int32_t& o_lBlockLength) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetBlockLength", [&] {
    RequireKey();
    int32_t bits = 0;
    if (!GetBlockLengthInBits(bits)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH);
    if (bits % 8 != 0) RaiseQuiv(KEY_ERROR_BLOCK_LENGTH_NOT_MULTIPLE_OF_EIGHT);
    o_lBlockLength = bits / 8;
  });
}

bool CSessionKey::GetKeyLength(int32_t& o_lKeyLen) {
  bool isRC2 = false;
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.GetKeyLength",
      [&] {
        RequireKey();
        int32_t algId = 0;
        if (!GetKeyAlgorithmID(algId)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID);
        isRC2 = KeyTools().GetAlgSID(algId) == m_oConst.ALG_SID_RC2();
        if (isRC2) {
          // What RC2 encrypts with is the effective length, not the bytes of key material.
          if (!GetRC2KeyLength(o_lKeyLen)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_RC2_KEY_LENGTH);
          return;
        }
        Variant value;
        if (!GetKeyParam(m_oConst.KP_KEYLEN(), value))
          RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_LENGTH);
        o_lKeyLen = value.ToLong();
      },
      [&](CErrHandler& e) {
        e.AddParam(u"RC2 key:", isRC2);
        e.AddParam(u"o_lKeyLen", o_lKeyLen);
      });
}

// --- Cipher mode, IV and feedback ---

bool CSessionKey::ChangeCipherModeID(int32_t i_lCipherModeID) {
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.ChangeCipherModeID",
      [&] {
        RequireKey();
        WriteByteParam(m_oConst.KP_MODE(), i_lCipherModeID);
      },
      [&](CErrHandler& e) { e.AddParam(u"i_lCipherModeID", i_lCipherModeID); });
}

bool CSessionKey::ChangeFeedbackBits(int32_t i_lFeedbackBits) {
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.ChangeFeedbackBits",
      [&] {
        RequireKey();
        WriteByteParam(m_oConst.KP_MODE_BITS(), i_lFeedbackBits);
      },
      [&](CErrHandler& e) { e.AddParam(u"i_lFeedbackBits", i_lFeedbackBits); });
}

bool CSessionKey::ChangeCipherModeCode(const String& i_sCipherModeCode) {
  return Trap(
      m_oLastError, u"QUIV.ChangeCipherModeCode",
      [&] {
        RequireKey();
        const CConstQUIV& k = m_oConst;
        int32_t mode = 0;
        // Exact, case-sensitive names: the codes callers read back from GetCipherModeCode.
        if (i_sCipherModeCode == u"CRYPT_MODE_ECB") {
          mode = k.CRYPT_MODE_ECB();
        } else if (i_sCipherModeCode == u"CRYPT_MODE_CBC") {
          mode = k.CRYPT_MODE_CBC();
        } else if (i_sCipherModeCode == u"CRYPT_MODE_OFB") {
          mode = k.CRYPT_MODE_OFB();
        } else if (i_sCipherModeCode == u"CRYPT_MODE_CFB") {
          mode = k.CRYPT_MODE_CFB();
        } else {
          RaiseQuiv(KEY_ERROR_UNKNOWN_CIPHER_MODE);
        }
        if (!ChangeCipherModeID(mode)) RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_CIPHER_MODE);
      },
      [&](CErrHandler& e) { e.AddParam(u"i_sCipherModeCode", i_sCipherModeCode); });
}

bool CSessionKey::GetCipherModeID(int32_t& o_lMode) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetCipherModeID", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_MODE(), value)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_CIPHER_MODE_ID);
    o_lMode = value.ToLong();
  });
}

bool CSessionKey::GetCipherModeCode(String& o_sMode) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetCipherModeCode", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_MODE(), value)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_CIPHER_MODE_ID);
    if (!KeyTools().CipherMode_ID2Code(value.ToLong(), o_sMode)) {
      RaiseQuiv(KEY_ERROR_UNKNOWN_CIPHER_MODE);
    }
  });
}

bool CSessionKey::GetFeedbackBits(int32_t& o_lModeBits) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetFeedbackBits", [&] {
    RequireKey();
    Variant value;
    if (!GetKeyParam(m_oConst.KP_MODE_BITS(), value)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_CIPHER_MODE_BITS);
    }
    o_lModeBits = value.ToLong();
  });
}

bool CSessionKey::AddRandomIV() {
  return Trap(m_oLastError, u"QUIV.CSessionKey.AddRandomIV", [&] {
    RequireKey();
    RequireBlockCipher();
    const int32_t count = BlockBytes();
    ByteArray iv(std::vector<uint8_t>(static_cast<size_t>(count)));
    if (!Platform().CryptGenRandom(Context(), static_cast<DWORD>(count), iv.data())) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GENERATE_RANDOM_IV);
    }
    if (!Platform().CryptSetKeyParam(m_hKey, static_cast<DWORD>(m_oConst.KP_IV()), iv.data(), 0)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_ADD_IV);
    }
  });
}

bool CSessionKey::LoadAndAddIV(const String& i_sIV, DATA_FORMAT i_nLoadFormat) {
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.LoadAndAddIV",
      [&] {
        RequireKey();
        RequireBlockCipher();
        const int32_t count = BlockBytes();
        ByteArray iv;
        if (!Converter().LoadItem(i_sIV, i_nLoadFormat, iv)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_LOAD);
        }
        // Exactly one block: a shorter or longer IV is neither padded nor cut.
        if (iv.UBound() != static_cast<int64_t>(count) - 1) {
          RaiseQuiv(KEY_ERROR_INPUT_IV_PARAMETER_REJECTED_BECAUSE_LENGTH_IS_WRONG);
        }
        if (!Platform().CryptSetKeyParam(m_hKey, static_cast<DWORD>(m_oConst.KP_IV()), iv.data(),
                                         0)) {
          RaiseQuiv(KEY_ERROR_UNABLE_TO_ADD_IV);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"i_sIV", i_sIV);
        e.AddParam(u"i_nLoadFormat", static_cast<int32_t>(i_nLoadFormat));
      });
}

bool CSessionKey::UnloadIV(String& o_sIV, DATA_FORMAT i_nUnloadFormat) {
  // Reported under the neighbouring method's name, which callers and logs match on.
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.GetCipherModeCode",
      [&] {
        RequireKey();
        Variant value;
        if (!GetKeyParam(m_oConst.KP_KEYLEN(), value)) {
          RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH);
        }
        if (!GetKeyParam(m_oConst.KP_IV(), value)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_IV);
        if (!Converter().UnloadItem(value.ToByteArray(), o_sIV, i_nUnloadFormat, true)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"o_sIV", o_sIV);
        e.AddParam(u"i_nUnloadFormat", static_cast<int32_t>(i_nUnloadFormat));
      });
}

bool CSessionKey::GetRandomBytes(ByteArray& io_abRnd) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.GetRandomBytes", [&] {
    const int64_t count = io_abRnd.UBound() + 1;
    if (!Platform().CryptGenRandom(Context(), static_cast<DWORD>(count), io_abRnd.data())) {
      io_abRnd = ByteArray();  // one element: nothing half-random is handed back
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GENERATE_RANDOM_BYTES);
    }
  });
}

// --- Encryption ---

// Block ciphers grow the data by their padding, so the first call may ask for a bigger buffer
// (ERROR_MORE_DATA with the size); the array is grown and the call made again on the original
// length. Only the last error decides whether the second call is made.
void CSessionKey::EncryptInPlace(bool i_fFinal, ByteArray& io_abData) {
  const CConstQUIV& k = m_oConst;
  const auto moreData = static_cast<uint32_t>(k.ERROR_MORE_DATA());
  const auto initial = static_cast<DWORD>(io_abData.size());
  DWORD length = initial;
  DWORD capacity = initial;
  // The last error must be this call's own answer: a stale ERROR_MORE_DATA from an earlier size
  // query would otherwise encrypt a section that the first call already encrypted.
  Platform().SetLastError(0);
  if (!Platform().CryptEncrypt(m_hKey, 0, i_fFinal, 0, io_abData.data(), &length, capacity)) {
    if (LastPlatformError() != moreData) RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
    io_abData.Reserve(length);  // exactly: the next message of this size fits without moving
    io_abData.ReDimPreserve(static_cast<int64_t>(length) - 1);
    capacity = static_cast<DWORD>(io_abData.size());
    length = initial;
  }
  if (LastPlatformError() == moreData) {
    Platform().SetLastError(0);
    if (!Platform().CryptEncrypt(m_hKey, 0, i_fFinal, 0, io_abData.data(), &length, capacity)) {
      RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
    }
  }
  io_abData.ReDimPreserve(static_cast<int64_t>(length) - 1);
}

// The result becomes the message by exchanging buffers, and the message's old buffer stays as
// the next call's working array: a large message then costs one copy into memory the process
// already has, instead of fresh pages (which the kernel must fault in and zero) on every call.
// The old content is wiped first so that no plaintext lingers in the key object.
void CSessionKey::HandOver(const Ref<CMessagetext>& i_oMsgTxt) {
  if (!i_oMsgTxt->ExchangeMessageText(m_abWork)) {
    RaiseQuiv(MESSAGETEXT_ERROR_UNABLE_TO_SET_MESSAGETEXT);
  }
  WipeWork();
}

void CSessionKey::WipeWork() {
  m_abWork.Wipe();
  m_abWork.Clear();
}

bool CSessionKey::Encrypt(const Ref<CMessagetext>& i_oMsgTxt, int32_t& io_lAmount) {
  ByteArray& data = m_abWork;  // the record shows what it held at the failure
  data.Clear();
  const bool ok = Trap(
      m_oLastError, u"QUIV.CSessionKey.Encrypt",
      [&] {
        RequireKey();
        SquareAmount(io_lAmount);
        const bool final = io_lAmount != 0;
        // With room for the padding, a block cipher's output grows the copy without moving it.
        if (!i_oMsgTxt->GetMessageText(data, kPaddingRoom)) {
          RaiseQuiv(MESSAGETEXT_ERROR_UNABLE_TO_GET_MESSAGETEXT);
        }
        int32_t algId = 0;
        if (!GetKeyAlgorithmID(algId)) RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID);
        if (KeyTools().GetAlgType(algId) == m_oConst.ALG_TYPE_STREAM()) {
          // A stream cipher's output is as long as its input: one call, in place.
          auto length = static_cast<DWORD>(data.size());
          if (!Platform().CryptEncrypt(m_hKey, 0, final, 0, data.data(), &length, length)) {
            RaiseQuiv(MESSAGETEXT_ERROR_UNABLE_TO_ENCRYPT);
          }
        } else {
          EncryptInPlace(final, data);
        }
        HandOver(i_oMsgTxt);
        Platform().SetLastError(0);
      },
      [&](CErrHandler& e) {
        if (data.UBound() > 0) {
          e.AddParam(u"Begin of ASCII of plntxt", LeadingBytesAsText(data));
        } else {
          e.AddParam(u"Empty plaintext.", u"");
        }
        e.AddParam(u"i_lAmount * i_lAmount", io_lAmount);
      });
  if (!ok) WipeWork();
  return ok;
}

bool CSessionKey::Encrypt(const Ref<CMessagetext>& i_oMsgTxt, const int32_t& i_lAmount) {
  int32_t amount = i_lAmount;
  return Encrypt(i_oMsgTxt, amount);
}

// An AMOUNT variable receives the square as an int32_t variable does (ENTIRE becomes 1, which is
// FINAL_SECTION's value).
bool CSessionKey::Encrypt(const Ref<CMessagetext>& i_oMsgTxt, AMOUNT& io_nAmount) {
  int32_t amount = io_nAmount;
  const bool ok = Encrypt(i_oMsgTxt, amount);
  io_nAmount = static_cast<AMOUNT>(amount);
  return ok;
}

bool CSessionKey::Decrypt(const Ref<CMessagetext>& i_oMsgTxt, int32_t& io_lAmount) {
  const bool ok = Trap(
      m_oLastError, u"QUIV.CSessionKey.Decrypt",
      [&] {
        RequireKey();
        SquareAmount(io_lAmount);
        ByteArray& data = m_abWork;
        data.Clear();
        if (!i_oMsgTxt->GetMessageText(data)) {
          RaiseQuiv(MESSAGETEXT_ERROR_UNABLE_TO_GET_MESSAGETEXT);
        }
        auto length = static_cast<DWORD>(data.size());
        // A wrong key or damaged ciphertext shows as bad padding on the final call; the message
        // keeps its content because only the copy was touched.
        if (!Platform().CryptDecrypt(m_hKey, 0, io_lAmount != 0, 0, data.data(), &length)) {
          RaiseQuiv(MESSAGETEXT_ERROR_UNABLE_TO_DECRYPT);
        }
        data.ReDimPreserve(static_cast<int64_t>(length) - 1);
        HandOver(i_oMsgTxt);
      },
      [&](CErrHandler& e) { e.AddParam(u"i_lAmount * i_lAmount", io_lAmount); });
  if (!ok) WipeWork();  // a wrong key's output is no one's business either
  return ok;
}

bool CSessionKey::Decrypt(const Ref<CMessagetext>& i_oMsgTxt, const int32_t& i_lAmount) {
  int32_t amount = i_lAmount;
  return Decrypt(i_oMsgTxt, amount);
}

bool CSessionKey::Decrypt(const Ref<CMessagetext>& i_oMsgTxt, AMOUNT& io_nAmount) {
  int32_t amount = io_nAmount;
  const bool ok = Decrypt(i_oMsgTxt, amount);
  io_nAmount = static_cast<AMOUNT>(amount);
  return ok;
}

// --- Transport and permissions ---

bool CSessionKey::LoadSessionKey(const Ref<CRSAKeyPair>& i_oExKeys, const String& io_sSessionKey,
                                 DATA_FORMAT i_nLoadFormat) {
  return Trap(
      m_oLastError, u"QUIV.CSessionKey.LoadSessionKey",
      [&] {
        const CConstQUIV& k = m_oConst;
        if (!Clear()) RaiseQuiv(KEY_ERROR_UNABLE_TO_DESTROY_KEY);
        ByteArray blob;
        if (!Converter().LoadItem(io_sSessionKey, i_nLoadFormat, blob)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_LOAD_KEY);
        }
        // The detailed reason for a rejected blob stays in the key tools' own record.
        int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
        if (!KeyTools().ValidateBlob(k.SIMPLEBLOB(), algClass, blob)) {
          RaiseQuiv(KEY_ERROR_WRONG_KEY_TYPE);
        }
        HCRYPTKEY exchangeKey = 0;
        if (!i_oExKeys->GetKeyPairHandle(exchangeKey)) {
          RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_RSA_PRIVATE_KEY_HANDLE);
        }
        int32_t flags = 0;
        if (m_fUnloadable) flags = k.CRYPT_EXPORTABLE();
        flags |= k.CRYPT_NO_SALT();
        if (!Platform().CryptImportKey(Context(), blob.data(), static_cast<DWORD>(blob.size()),
                                       exchangeKey, static_cast<DWORD>(flags), &m_hKey)) {
          RaiseQuiv(KEY_ERROR_CRYPTIMPORTKEY_FAILED);
        }
        m_fHasKey = true;
        // Unlike generation, a key whose RC2 length could not be set stays held.
        if (!IfRC2ChangeLength()) RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH);
      },
      [&](CErrHandler& e) {
        e.AddParam(u"io_sSessionKey", io_sSessionKey);
        e.AddParam(u"i_nLoadFormat", static_cast<int32_t>(i_nLoadFormat));
      });
}

bool CSessionKey::UnloadSessionKey(const Ref<CRSAKeyPair>& i_oExchKeyPair, String& io_sSessionKey,
                                   DATA_FORMAT i_nUnloadFormat) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.UnloadSessionKey", [&] {
    const CConstQUIV& k = m_oConst;
    RequireKey();
    HCRYPTKEY publicKey = 0;
    if (!i_oExchKeyPair->GetPublicKeyHandle(publicKey)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_RSA_PUBLIC_KEY_HANDLE);
    }
    const auto blobType = static_cast<DWORD>(k.SIMPLEBLOB());
    ByteArray blob;
    DWORD length = 0;
    if (!Platform().CryptExportKey(m_hKey, publicKey, blobType, 0, blob.data(), &length)) {
      if (LastPlatformError() != static_cast<uint32_t>(k.ERROR_MORE_DATA())) {
        RaiseQuiv(GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY);
      }
      blob.ReDimPreserve(static_cast<int64_t>(length) - 1);
      Platform().SetLastError(0);
    }
    // A key made without CRYPT_EXPORTABLE is refused here by the platform; no check of our own.
    if (!Platform().CryptExportKey(m_hKey, publicKey, blobType, 0, blob.data(), &length)) {
      RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD_KEY);
    }
    blob.ReDimPreserve(static_cast<int64_t>(length) - 1);
    if (!Converter().UnloadItem(blob, io_sSessionKey, i_nUnloadFormat, true)) {
      RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD);
    }
  });
}

bool CSessionKey::GetKeyPermissions(bool& o_fEncrypt, bool& o_fDecrypt, bool& o_fExport,
                                    bool& o_fRead, bool& o_fWrite, bool& o_fMAC) {
  // Reported with the "set" code and source although it reads; callers match on both.
  return Trap(m_oLastError, u"QUIV.CSessionKey.SetKeyPermission", [&] {
    RequireKey();
    const int32_t unused = 0;
    if (!KeyTools().GetKeyPermissions(m_oProvider, m_hKey, unused, o_fEncrypt, o_fDecrypt,
                                      o_fExport, o_fRead, o_fWrite, o_fMAC)) {
      RaiseQuiv(KEY_ERROR_UNABLE_TO_SET_KEY_PERMISSIONS);
    }
  });
}

bool CSessionKey::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CSessionKey.OnStartPage", i_oScript);
}

// --- IHash ---

bool CSessionKey::WhatToHash(int16_t& o_nWhat) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.IHash_WhatToHash", [&] { o_nWhat = SESSION_KEY; });
}

bool CSessionKey::GetDataAsByteArray(ByteArray& /*o_abData*/) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.IHash_GetDataAsByteArray", [&] {
    RaiseQuiv(KEY_ERROR_THIS_METHOD_SHOULD_NEVER_BE_CALLED_FROM_A_SESSION_KEY_OBJECT);
  });
}

bool CSessionKey::GetSessionKeyHandle(HCRYPTKEY& o_lSessionKeyHandle) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.IHash_GetSessionKeyHandle", [&] {
    RequireKey();
    o_lSessionKeyHandle = m_hKey;
  });
}

// --- Provider ties ---

bool CSessionKey::SetProvider(const Ref<CProvider>& i_oProvider) {
  return Trap(m_oLastError, u"QUIV.CSessionKey.Set Provider", [&] { m_oProvider = i_oProvider; });
}

void CSessionKey::Terminate() {
  Trap(m_oLastError, u"QUIV.CSessionKey.Class_Terminate", [&] {
    m_fTerminated = true;
    if (!m_oProvider.IsNothing()) m_oProvider.SetNothing();
    if (!m_oConvert.IsNothing()) m_oConvert.SetNothing();
    if (!m_oKeyTools.IsNothing()) m_oKeyTools.SetNothing();
    if (!m_oLastError.IsNothing()) m_oLastError.SetNothing();
  });
}

}  // namespace quiv
