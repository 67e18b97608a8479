// CHashValue: one CryptoAPI hash object of the provider session that made it. It hashes any
// IHash object (message text, a key pair's blob, a session key), loads a hash value computed
// elsewhere, and hands the value out as bytes, in any DATA_FORMAT or as a fingerprint.
// Successive Hash calls accumulate into one running hash until Clear destroys the hash object;
// the algorithm set with SetHashAlgorithmID/Code takes effect with the next hash object.
//
// Result convention: true on success, false with m_oLastError loaded. UnloadHashValue is the
// exception: it records nothing and lets its failure escape as a RuntimeError.
//
// Ownership: owns its hash handle (destroyed by Clear and Terminate), keeps a counted reference
// to its provider (broken by Terminate), its own converter and the key tools it makes on first
// use. Single-threaded, as its provider.
#ifndef QUIV_SIGNING_CHASHVALUE_H
#define QUIV_SIGNING_CHASHVALUE_H

#include <cstdint>

#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "constants/CConstQUIV.h"
#include "data/DataFormat.h"
#include "data/IHash.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

namespace quiv {

class CConvert;
class CKeyTools;
class CProvider;
class CSessionKey;

class QUIV_API CHashValue final : public Object {
 public:
  CHashValue();
  ~CHashValue() override;

  // The LastError property (made on the first failure).
  Ref<CErrHandler> m_oLastError;

  // Destroys the hash object if there is one; the algorithm is kept.
  bool Clear();
  // Starts a new hash object of i_lHashAlgID holding the given value (its length unchecked).
  bool LoadHashValue(const String& i_sHash, DATA_FORMAT i_nLoadFormat, int32_t i_lHashAlgID);
  bool UnloadFingerprint(String& io_sFPrint, DATA_FORMAT i_nUnloadFormat,
                         FINGERPRINT_FORMAT i_nFPrintFormatting = HYPHENS);
  // Records nothing: a failure is thrown as a RuntimeError carrying the library code.
  bool UnloadHashValue(String& io_sHash, DATA_FORMAT i_nUnloadFormat);
  // Adds the hashee's bytes (or its session key) to the running hash.
  bool Hash(const Ref<IHash>& i_oHashee);
  // A session key is accepted only for keyed hashes, which a full RSA provider never has here.
  bool Hash(const Ref<IHash>& i_oHashee, const Ref<CSessionKey>& i_oSessionKey);
  bool GetHashValue(ByteArray& o_abHashValue);
  // The hash object's algorithm (not the field): fails while there is no hash object.
  bool GetHashAlgorithmID(int32_t& o_lHashAlgorithmID);
  bool SetHashAlgorithmID(int32_t i_lHashAlgorithmID);
  bool GetHashValueLengthInBytes(int16_t& o_nHashSize);
  bool GetHashAlgorithmCode(String& o_sHashAlgorithmCode);
  bool SetHashAlgorithmCode(const String& o_sHashAlgorithmCode);
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  String TypeName() const override { return u"CHashValue"; }

 private:
  // Internal routines: the library's own classes call them, callers do not; tests reach them
  // through InternalAccess (tests/support), which is not installed.
  friend class CProvider;
  friend class CRSAKeyPair;
  friend class CSessionKey;
  friend struct InternalAccess;

  bool SetProvider(const Ref<CProvider>& i_oProvider);
  // The handle argument is ignored: the object's own hash is always read.
  bool GetHashParam(HCRYPTHASH& io_hHashIgnored, int32_t i_lParam, Variant& o_vValue);
  bool GetHashHandle(HCRYPTHASH& o_hHash);
  // Clears, then releases the provider and the converter; the destructor does nothing after it.
  void Terminate();

  bool HashCore(const Ref<IHash>& i_oHashee, bool i_fKeyGiven);
  void CheckSessionKeyAllowed();
  void EnsureHashObject();
  void CreateHashObject();
  CConvert& Converter();
  CKeyTools& KeyTools();

  HCRYPTHASH m_hHash = 0;
  int32_t m_lHashAlgID = 0;
  bool m_fHasHash = false;
  bool m_fTerminated = false;
  Ref<CProvider> m_oProvider;
  Ref<CConvert> m_oConvert;
  Ref<CKeyTools> m_oKeyTools;
  const CConstQUIV m_oConst{};
};

}  // namespace quiv

#endif
