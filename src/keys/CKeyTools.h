// CKeyTools: the small pieces of key handling that the key classes (CSessionKey, CRSAKeyPair) and
// the algorithm catalogue (CAlgInfo) share: checking an imported key blob's header, reading a
// key parameter with the two-call size pattern, reading and changing a key's permission bits,
// the class/type/sub-identifier fields of an algorithm identifier, and the code names of
// algorithm and cipher-mode identifiers. Internal: never handed to a caller of the library.
//
// Each user makes its own instance. Every routine records its failures in this object's own
// LastError, which the calling class does not read: a caller learns of a failure from the false
// result (or the 0 of GetAlgClass/GetAlgType/GetAlgSID) and raises its own code.
//
// Ownership: owns its LastError record. No state is kept between calls. Single-threaded.
#ifndef QUIV_KEYS_CKEYTOOLS_H
#define QUIV_KEYS_CKEYTOOLS_H

#include <cstdint>

#include "automation/ByteArray.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

namespace quiv {

class CProvider;

class QUIV_API CKeyTools final : public Object {
 public:
  CKeyTools() = default;
  ~CKeyTools() override;

  Ref<CErrHandler> m_oLastError;

  // Sets KP_PERMISSIONS from the six flags. Refuses a provider whose name can be read
  // (PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME: the test stands reversed, as it always has), the
  // Base provider (GENERAL_ERROR_BASE_PROVIDER_IGNORES_KEY_SETTINGS), a handle that cannot be
  // duplicated (KEY_ERROR_INVALID_KEY_HANDLE), and a refused write
  // (KEY_ERROR_UNABLE_TO_SET_KEY_PERMISSIONS).
  bool ChangeKeyPermissions(const Ref<CProvider>& i_oProvider, HCRYPTKEY i_hKey, bool i_fEncrypt,
                            bool i_fDecrypt, bool i_fExport, bool i_fRead, bool i_fWrite,
                            bool i_fMAC);
  // Reads KP_PERMISSIONS into the six flags. Refuses a provider without a readable name and the
  // Base provider; KEY_ERROR_UNABLE_TO_GET_KEY_PERMISSIONS when the read fails. The third
  // argument is not used.
  bool GetKeyPermissions(const Ref<CProvider>& i_oProvider, HCRYPTKEY i_hKey, int32_t i_lUnused,
                         bool& o_fEncrypt, bool& o_fDecrypt, bool& o_fExport, bool& o_fRead,
                         bool& o_fWrite, bool& o_fMAC);
  // The class (0xE000), type (0x1E00) and sub-identifier (0x01FF) fields. A negative identifier
  // is refused: UNDEFINED_ERROR with "Negative input not allowed, received:<n>" recorded, and 0.
  int32_t GetAlgClass(int32_t iAlgID);
  int32_t GetAlgType(int32_t iAlgID);
  int32_t GetAlgSID(int32_t iAlgID);
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  // --- Internal (the library's classes only) ---

  // Checks the header of a key blob against the expected blob type and key class (AT_KEYEXCHANGE
  // and AT_SIGNATURE are rewritten in the caller's variable to their algorithm classes). On
  // failure the caller's blob is replaced by the empty array so it is never used.
  bool ValidateBlob(int32_t i_lBlobType, int32_t& io_lBlobAlgClass, ByteArray& io_abBlob);
  // One KP_* parameter: the numeric ones as the value of their two low bytes, KP_IV and KP_SALT
  // as bytes; any other parameter fails with KEY_ERROR_UNKNOWN_KEY_PARAMETER after the reads.
  bool GetKeyParam(HCRYPTKEY i_hKey, int32_t i_lParam, Variant& o_vValue);
  // "CALG_RC2" for CALG_RC2 ...; "(Unknown Key Algorithm ID!)" and false for an unknown id.
  bool KeyAlg_ID2Code(int32_t i_lAlgID, String& o_sCode);
  // "CRYPT_MODE_ECB", "CRYPT_MODE_CBC", "CRYPT_MODE_OFB" or "CRYPT_MODE_CFB"; any other mode
  // fails with the output untouched.
  bool CipherMode_ID2Code(int32_t i_lMode, String& o_sCode);

  String TypeName() const override { return u"CKeyTools"; }

 private:
  int32_t AlgField(int32_t iAlgID, int32_t i_lMask, const char16_t* i_sRaiseSource,
                   const char16_t* i_sSource);
};

}  // namespace quiv

#endif
