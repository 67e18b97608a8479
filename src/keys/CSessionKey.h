// CSessionKey: the library's symmetric key. It keeps the settings the next key is made with
// (algorithm, length, pass phrase and the hash that derives a key from it, exportability), makes
// the key in the provider (GenerateSessionKey: derived from the phrase, or random without one),
// sets and reads the key's cipher mode, feedback width and IV, encrypts and decrypts message
// objects in place (whole, or in sections), moves the key in and out wrapped by an RSA exchange
// key (SIMPLEBLOB), and implements IHash so that a hash object can hash the key through its
// handle.
//
// Settings never touch a key that exists; they apply to the next generation. Mode, feedback and
// IV live in the platform key only (nothing is cached here), so they are set again after every
// generation or import. Every key this class makes or imports is unsalted (CRYPT_NO_SALT), and
// on the Enhanced provider an RC2 key's effective length follows the requested key length (128
// for the default), so that a phrase yields the same key as elsewhere.
//
// The provider owns one instance and ties it to itself with SetProvider; callers get it from the
// provider's factory. Result convention: true on success, false with m_oLastError loaded (source
// "QUIV.CSessionKey.<Routine>" unless a method says otherwise; the odd sources some methods
// report are the ones callers and logs match on).
//
// Ownership: the object owns its one key handle, destroyed by Clear (and by every generation or
// load, which clear first). Terminate leaves the key alone (call Clear first to destroy it); the
// destructor destroys a key still held unless Terminate ran. It holds counted references to its
// provider (a cycle the provider's TerminateAll breaks), its LastError record, and the converter
// and key tools it makes on first use. Encrypt and Decrypt keep their working array (wiped, at
// the size of the largest message so far) to reuse its memory; it goes with the object. Every
// platform call reads the provider's context afresh.
// Single-threaded, as its provider.
#ifndef QUIV_KEYS_CSESSIONKEY_H
#define QUIV_KEYS_CSESSIONKEY_H

#include <cstdint>

#include "automation/ByReference.h"
#include "automation/ByteArray.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "constants/CConstQUIV.h"
#include "data/DataFormat.h"
#include "data/IHash.h"
#include "errors/CErrHandler.h"
#include "keys/KeyEnums.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

namespace quiv {

class CConvert;
class CKeyTools;
class CMessagetext;
class CProvider;
class CRSAKeyPair;

class QUIV_API CSessionKey final : public Object, public IHash {
 public:
  // Default settings (SetDefaultKeySettings), no key.
  CSessionKey();
  ~CSessionKey() override;

  // The LastError property (made on the first failure).
  Ref<CErrHandler> m_oLastError;

  // --- Encryption ---

  // Encrypts the message's bytes in place with the held key. The Final flag is the amount
  // squared, and the square is written back (ENTIRE leaves 1). A block cipher's final call adds
  // PKCS#5 padding; a non-final section must be whole blocks. Parameters on failure: "Begin of
  // ASCII of plntxt" (the first ten bytes as characters) or "Empty plaintext.", then
  // "i_lAmount * i_lAmount".
  //
  // The amount is written back into an int32_t or an AMOUNT variable; a constant or a temporary
  // (Encrypt(msg, ENTIRE)) is read only. A variable of any other type does not compile: it would
  // be converted to a temporary and silently miss the write-back.
  bool Encrypt(const Ref<CMessagetext>& i_oMsgTxt, int32_t& io_lAmount);
  bool Encrypt(const Ref<CMessagetext>& i_oMsgTxt, AMOUNT& io_nAmount);
  bool Encrypt(const Ref<CMessagetext>& i_oMsgTxt, const int32_t& i_lAmount = FINAL_SECTION);
  template <class T>
  requires OtherVariable<T, int32_t, AMOUNT>
  bool Encrypt(const Ref<CMessagetext>& i_oMsgTxt, T& io_lAmount) = delete;
  // Decrypts in place; the final call removes the padding. A wrong key or damaged ciphertext
  // fails with MESSAGETEXT_ERROR_UNABLE_TO_DECRYPT and leaves the message as it was. Parameter
  // "i_lAmount * i_lAmount". The amount is written back as by Encrypt.
  bool Decrypt(const Ref<CMessagetext>& i_oMsgTxt, int32_t& io_lAmount);
  bool Decrypt(const Ref<CMessagetext>& i_oMsgTxt, AMOUNT& io_nAmount);
  bool Decrypt(const Ref<CMessagetext>& i_oMsgTxt, const int32_t& i_lAmount = FINAL_SECTION);
  template <class T>
  requires OtherVariable<T, int32_t, AMOUNT>
  bool Decrypt(const Ref<CMessagetext>& i_oMsgTxt, T& io_lAmount) = delete;

  // --- Cipher mode, IV and feedback (the held key's own parameters) ---

  // "CRYPT_MODE_ECB", "CRYPT_MODE_CBC", "CRYPT_MODE_OFB" or "CRYPT_MODE_CFB", exactly (source
  // "QUIV.ChangeCipherModeCode", parameter "i_sCipherModeCode").
  bool ChangeCipherModeCode(const String& i_sCipherModeCode);
  // KP_MODE; any value 0..255 the provider accepts (parameter "i_lCipherModeID").
  bool ChangeCipherModeID(int32_t i_lCipherModeID);
  // KP_MODE_BITS, 0..255 (parameter "i_lFeedbackBits").
  bool ChangeFeedbackBits(int32_t i_lFeedbackBits);
  bool GetCipherModeID(int32_t& o_lMode);
  bool GetCipherModeCode(String& o_sMode);
  bool GetFeedbackBits(int32_t& o_lModeBits);
  // A random IV of one block (block ciphers only).
  bool AddRandomIV();
  // An IV of exactly one block in its outside form (parameters "i_sIV", "i_nLoadFormat").
  bool LoadAndAddIV(const String& i_sIV, DATA_FORMAT i_nLoadFormat);
  // The key's IV in its outside form (source "QUIV.CSessionKey.GetCipherModeCode", parameters
  // "o_sIV", "i_nUnloadFormat").
  bool UnloadIV(String& o_sIV, DATA_FORMAT i_nUnloadFormat);
  // Fills the caller's array (UBound + 1 bytes) with random bytes; needs no key. On failure the
  // array is one element.
  bool GetRandomBytes(ByteArray& io_abRnd);

  // --- Settings and generation ---

  // A symmetric algorithm (ALG_CLASS_DATA_ENCRYPT); the provider's support is not checked here.
  bool SetKeyAlgorithmID(int32_t i_lKeyAlgID);
  // A hash algorithm (ALG_CLASS_HASH) for deriving a key from the phrase.
  bool SetHashAlgorithmID(int32_t i_lHashAlgID);
  // Bits; 0 is the provider's default. Negative fails, above 32767 overflows.
  bool SetKeyLength(int32_t i_lKeyLen);
  // A phrase that is blank after trimming keeps the former one (still true).
  bool SetKeyPhrase(const String& i_sKeyPhrase);
  bool SetUnloadable(bool i_fKeyUnloadable);
  // RC2, MD5, default length, exportable, no phrase; the held key is not touched.
  bool SetDefaultKeySettings();
  // Clears, then makes the key: derived from the phrase (hashed as UTF-16LE with its terminating
  // NUL) or random without one. Parameters "keyphrase", "key len", "unloadable".
  bool GenerateSessionKey();
  // Destroys the held key; the settings stay. Without a key it does nothing.
  bool Clear();

  // --- The held key ---

  // The held key's ALG_ID (KP_ALGID); KEY_ERROR_KEY_OBJECT_DOES_NOT_HAVE_SESSION_KEY_HANDLE
  // without a key, KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID when the platform cannot say.
  bool GetKeyAlgorithmID(int32_t& o_lKeyAlgID);
  // The algorithm's constant name, e.g. "CALG_RC2"; "(Unknown Key Algorithm ID!)" with a failure
  // for an algorithm the tables do not name.
  bool GetKeyAlgorithmCode(String& o_sKeyAlgCode);
  // 0 for a stream cipher (both: source "QUIV.CSessionKey.GetBlockLength").
  bool GetBlockLengthInBits(int32_t& o_lBlockLength);
  bool GetBlockLengthInBytes(int32_t& o_lBlockLength);
  // RC2: the effective length; others: KP_KEYLEN (parameters "RC2 key:", "o_lKeyLen").
  bool GetKeyLength(int32_t& o_lKeyLen);

  // --- Transport and permissions ---

  // Clears, then imports a SIMPLEBLOB wrapped for the exchange pair's private key (parameters
  // "io_sSessionKey", "i_nLoadFormat"). A failed load leaves no key.
  bool LoadSessionKey(const Ref<CRSAKeyPair>& i_oExKeys, const String& io_sSessionKey,
                      DATA_FORMAT i_nLoadFormat);
  // The held key as a SIMPLEBLOB wrapped by the pair's public key, in the chosen outside form.
  // The caller's string changes only on success.
  bool UnloadSessionKey(const Ref<CRSAKeyPair>& i_oExchKeyPair, String& io_sSessionKey,
                        DATA_FORMAT i_nUnloadFormat);
  // KP_PERMISSIONS as six flags; refused on the Base provider (source
  // "QUIV.CSessionKey.SetKeyPermission").
  bool GetKeyPermissions(bool& o_fEncrypt, bool& o_fDecrypt, bool& o_fExport, bool& o_fRead,
                         bool& o_fWrite, bool& o_fMAC);
  // Creates the record if needed and hands it the page context, whose URL, address and cookies
  // then appear in every error message.
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  // --- IHash ---

  // Always SESSION_KEY.
  bool WhatToHash(int16_t& o_nWhat) override;
  // Always fails: a session key is hashed through its handle, never as bytes.
  bool GetDataAsByteArray(ByteArray& o_abData) override;
  // The held key's handle.
  bool GetSessionKeyHandle(HCRYPTKEY& o_lSessionKeyHandle) override;

  String TypeName() const override { return u"CSessionKey"; }

 private:
  // Internal routines: the library's own classes call them, callers do not; tests reach them
  // through InternalAccess (tests/support), which is not installed.
  friend class CProvider;
  friend class CRSAKeyPair;
  friend class CHashValue;
  friend struct InternalAccess;

  // Ties the key to its provider (a counted reference).
  bool SetProvider(const Ref<CProvider>& i_oProvider);
  bool GetKeyHandle(HCRYPTKEY& o_hKey);
  // One KP_* parameter of the held key (through CKeyTools::GetKeyParam).
  bool GetKeyParam(int32_t i_lParam, Variant& o_vValue);
  // KP_EFFECTIVE_KEYLEN of the held key.
  bool GetRC2KeyLength(int32_t& o_lKeyLen);
  // On the Enhanced provider, sets an RC2 key's effective length to the requested key length
  // (128 for the default); elsewhere nothing.
  bool IfRC2ChangeLength();
  // Sets KP_EFFECTIVE_KEYLEN and stores the length as the key-length setting (RC2 only).
  bool ChangeRC2KeyLength(int32_t i_lKeyLen);
  // Termination: releases the provider, converter, key tools and record; the key is left to
  // Clear (the destructor then no longer touches the platform).
  void Terminate();
  // The working array, for the tests that check it is wiped after every call.
  const ByteArray& WorkingArray() const { return m_abWork; }

  void EncryptInPlace(bool i_fFinal, ByteArray& io_abData);
  void HandOver(const Ref<CMessagetext>& i_oMsgTxt);
  void WipeWork();
  void RequireKey() const;
  void RequireBlockCipher();
  int32_t BlockBytes();
  void WriteByteParam(int32_t i_lParam, int32_t i_lValue);
  int32_t LengthFlags() const;
  void DeriveFromPhrase(int32_t i_lFlags);
  CKeyTools& KeyTools();
  CConvert& Converter();
  HCRYPTPROV Context() const;

  HCRYPTKEY m_hKey = 0;
  Ref<CProvider> m_oProvider;
  bool m_fHasKey = false;
  String m_sKeyPhrase;
  int32_t m_lKeyAlgID = 0;
  int32_t m_lHashAlgID = 0;
  int16_t m_nKeyLength = 0;
  bool m_fUnloadable = true;
  bool m_fTerminated = false;
  Ref<CKeyTools> m_oKeyTools;
  Ref<CConvert> m_oConvert;
  ByteArray m_abWork;  // Encrypt's and Decrypt's working array, kept for its memory
  const CConstQUIV m_oConst{};
};

}  // namespace quiv

#endif
