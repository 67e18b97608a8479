// CRSAKeyPair: one RSA key of a provider session, either a full key pair (private and public
// part) or a public key alone, of one key specification: exchange (AT_KEYEXCHANGE) or signature
// (AT_SIGNATURE). It generates keys, reports their length, signs and verifies, moves keys in
// and out as PUBLICKEYBLOB / PRIVATEKEYBLOB in every DATA_FORMAT (a private key optionally
// wrapped under a session key) or takes them from the open key container, and implements IHash
// so that its public or private key can be hashed and signed like message text.
//
// PublicKey() and PrivateKey() are views, not copies: they choose what the object offers to
// hashing and signing (its IHash answers) and return the object itself, so a caller signs a key
// pair's public key by passing keyPair->PublicKey() where an IHash is expected.
//
// The provider owns two instances (one exchange, one signature pair) and ties each to itself
// with SetProvider and SetExOrSigKeyObject; callers get them from the provider's factory. Result
// convention: true on success, false with m_oLastError loaded (source
// "QUIV.CRSAKeyPair.<Routine>" unless a method says otherwise).
//
// Ownership: the object owns its one key handle (one handle serves as key-pair and as public-key
// handle), destroyed by Clear (and by every generation or load, which clear first); the
// destructor destroys a handle still held unless Terminate ran. It holds counted references to
// its provider (a cycle the provider's TerminateAll breaks), its LastError record, and the
// converter, key tools and hash object it makes on first use. Every platform call reads the
// provider's context afresh. Single-threaded, as its provider.
#ifndef QUIV_SIGNING_CRSAKEYPAIR_H
#define QUIV_SIGNING_CRSAKEYPAIR_H

#include <cstdint>

#include "automation/ByReference.h"
#include "automation/ByteArray.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "data/DataFormat.h"
#include "data/IHash.h"
#include "errors/CErrHandler.h"
#include "errors/QuivError.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"
#include "signing/SigningEnums.h"

namespace quiv {

class CConvert;
class CHashValue;
class CKeyTools;
class CProvider;
class CSessionKey;

class QUIV_API CRSAKeyPair final : public Object, public IHash {
 public:
  // Default key settings (SetDefaultKeySettings); key specification 0 until
  // SetExOrSigKeyObject.
  CRSAKeyPair();
  ~CRSAKeyPair() override;

  // The LastError property (made on the first failure).
  Ref<CErrHandler> m_oLastError;

  // --- Keys ---

  // The key length in bits the next GenerateKeyPair asks for; 0 is the provider's default. Not
  // checked here (parameter "i_lModulus").
  bool SetModulus(int32_t i_lModulus);
  // The held key's real length in bits (KP_KEYLEN), not the stored request.
  bool GetModulus(int32_t& o_lModulus);
  // Clears, then generates a pair of the key specification with the requested length in the
  // upper 16 bits of the flags (CRYPT_EXPORTABLE when unloadable). A length of 32768 or more
  // overflows (run-time error 6). Parameters "unloadable", "modulus".
  bool GenerateKeyPair();
  // Destroys the held key; the settings and the hash view stay.
  bool Clear();
  // The views: the same object, now offering its public (or private) key to IHash consumers;
  // Nothing on failure (source "QUIV.CRSAKeyPair.PublicKey Get" / "PrivateKey Get", parameters
  // "type of keypair:", "contains only pub key:").
  Ref<CRSAKeyPair> PublicKey();
  Ref<CRSAKeyPair> PrivateKey();
  // Creates the record if needed and hands it the page context, whose URL, address and cookies
  // then appear in every error message.
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  // --- Signatures ---

  // Hashes the signee with the key pair's own hash object (i_lHashAlgID; -1 means CALG_MD5 and
  // the caller's variable receives it) and signs the hash with the key specification's private
  // key. The block is the platform's signature bytes as they come (little-endian), in the chosen
  // format. Parameters "o_sSignatureBlock", "o_nSignatureBlockFormat", "i_lHashAlgID".
  bool Sign(const Ref<IHash>& i_oSignee, String& o_sSignatureBlock,
            DATA_FORMAT o_nSignatureBlockFormat, int32_t& io_lHashAlgID);
  bool Sign(const Ref<IHash>& i_oSignee, String& o_sSignatureBlock,
            DATA_FORMAT o_nSignatureBlockFormat, const int32_t& i_lHashAlgID = -1);
  // A variable of another type than int32_t would miss the write-back: it does not compile.
  template <class T>
  requires OtherVariable<T, int32_t>
  bool Sign(const Ref<IHash>& i_oSignee, String& o_sSignatureBlock,
            DATA_FORMAT o_nSignatureBlockFormat, T& io_lHashAlgID) = delete;
  // True when the check ran: o_fValid is its verdict (a wrong signature is not a failure).
  // Works with a full pair and with a public key alone.
  bool VerifySignature(const Ref<IHash>& i_oSignedObject, const String& i_sSigBlock,
                       DATA_FORMAT i_nSigBlockFormat, bool& o_fValid, int32_t& io_lHashAlgID);
  bool VerifySignature(const Ref<IHash>& i_oSignedObject, const String& i_sSigBlock,
                       DATA_FORMAT i_nSigBlockFormat, bool& o_fValid,
                       const int32_t& i_lHashAlgID = -1);
  template <class T>
  requires OtherVariable<T, int32_t>
  bool VerifySignature(const Ref<IHash>& i_oSignedObject, const String& i_sSigBlock,
                       DATA_FORMAT i_nSigBlockFormat, bool& o_fValid, T& io_lHashAlgID) = delete;

  // --- Import and export ---

  // The PRIVATEKEYBLOB, wrapped under the session key when one is given. Parameters
  // "i_sKeyPair", "i_nUnloadFormat".
  bool UnloadPrivateKey(String& i_sKeyPair, DATA_FORMAT i_nUnloadFormat,
                        const Ref<CSessionKey>& i_oSessionKey = Nothing);
  // The PUBLICKEYBLOB of a pair or of a public key. Parameters "io_sPublicKey",
  // "i_nUnloadFormat".
  bool UnloadPublicKey(String& io_sPublicKey, DATA_FORMAT i_nUnloadFormat);
  // Clears, then imports a PRIVATEKEYBLOB of the key specification (unwrapped with the session
  // key when given), or with CURRENT_KEY_CONTAINER takes the container's key. A failed load
  // leaves no keys.
  bool LoadKeyPair(const String& i_sKeyPair, DATA_FORMAT i_nLoadFormat,
                   const Ref<CSessionKey>& i_oSessionKey = Nothing);
  // Clears, then imports a PUBLICKEYBLOB (always exportable). With CURRENT_KEY_CONTAINER it
  // takes the container's key and so holds the full pair.
  bool LoadPublicKey(const String& i_sPublicKey, DATA_FORMAT i_nLoadFormat);
  // Whether generated and imported pairs are made exportable (default true).
  bool SetUnloadable(bool i_fUnloadable);

  // --- IHash ---

  // The view chosen last (UNSPECIFIED until PublicKey or PrivateKey was used).
  bool WhatToHash(int16_t& o_nWhat) override;
  // The exported blob of the view as STRING_VB carries it (the string's storage bytes).
  bool GetDataAsByteArray(ByteArray& o_abData) override;
  // Never a key pair's operation: throws the library error
  // KEY_ERROR_THIS_METHOD_SHOULD_ONLY_BE_CALLED_FROM_A_SESSION_KEY_OBJECT to the caller without
  // recording it (there is no trap here).
  bool GetSessionKeyHandle(HCRYPTKEY& o_lSessionKeyHandle) override;

  String TypeName() const override { return u"CRSAKeyPair"; }

 private:
  // Internal routines: the library's own classes call them, callers do not; tests reach them
  // through InternalAccess (tests/support), which is not installed.
  friend class CProvider;
  friend class CSessionKey;
  friend class CHashValue;
  friend struct InternalAccess;

  // Fixes the key specification: AT_SIGNATURE or AT_KEYEXCHANGE only.
  bool SetExOrSigKeyObject(int16_t i_nKeySpec);
  // KEY_PAIR, PUBLIC_KEY or NOKEYS (source "QUIV.CRSAKeyPair", parameter "o_nContents").
  bool GetKeyPairContents(int16_t& o_nContents);
  // The key-pair handle; refused for a public key alone (parameter "key pair type").
  bool GetKeyPairHandle(HCRYPTKEY& o_hKey);
  // The public-key handle: a public key's own, or the pair's handle (source
  // "QUIV.CRSAPublicKey.GetPublicKeyHandle").
  bool GetPublicKeyHandle(HCRYPTKEY& o_hKey);
  // Modulus 0, no keys, unloadable, hash view UNSPECIFIED (the initialisation's settings).
  void SetDefaultKeySettings();
  // Ties the key pair to its provider (a counted reference).
  bool SetProvider(const Ref<CProvider>& i_oProvider);
  // Termination: releases the provider, converter, key tools, hash object and record; the key
  // handle is left to Clear (the destructor then no longer touches the platform).
  void Terminate();

  Ref<CRSAKeyPair> View(bool i_fPrivate);
  int16_t ValidateSignee(const Ref<IHash>& i_oSignee);
  void HashForSignature(const Ref<IHash>& i_oHashee, int32_t i_lHashAlgID, QUIV_ERROR i_eHashError,
                        HCRYPTHASH& o_hHash);
  ByteArray ExportBlob(int32_t i_lBlobType, HCRYPTKEY i_hWrapKey);
  HCRYPTKEY SessionKeyHandle(const Ref<CSessionKey>& i_oSessionKey);
  ByteArray LoadBlob(const String& i_sText, DATA_FORMAT i_nFormat, int32_t i_lBlobType);
  void TakeContainerKey();
  bool HoldsNoKeys() const { return !m_fHasKeyPair && !m_fPublicOnly; }
  bool HoldsBoth() const { return m_fHasKeyPair && m_fPublicOnly; }
  HCRYPTPROV Context() const;
  CConvert& Converter();
  CKeyTools& KeyTools();
  CHashValue& HashObject();
  bool UseWideEntryPoints() const;
  bool UseNarrowEntryPoints() const;

  Ref<CProvider> m_oProvider;
  HCRYPTKEY m_hKey = 0;
  int16_t m_nKeySpec = 0;
  int32_t m_lModulus = 0;
  bool m_fHasKeyPair = false;
  bool m_fPublicOnly = false;
  bool m_fUnloadable = true;
  int16_t m_nHashView = UNSPECIFIED;
  Ref<CConvert> m_oConvert;
  Ref<CKeyTools> m_oKeyTools;
  Ref<CHashValue> m_oHash;
  const CConstQUIV m_oConst{};  // every platform constant is read from it at use
  bool m_fTerminated = false;
};

}  // namespace quiv

#endif
