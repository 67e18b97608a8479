// CMessagetext: the buffer of plain or cipher text that callers encrypt, decrypt, hash and sign.
// One growable byte array with loaders and unloaders in every DATA_FORMAT (through CConvert), and
// the IHash contract, so that a hash or a signature can take the message's bytes.
//
// The buffer is never without elements: the empty message is one byte holding 0, so a message
// that is a single 0 byte cannot be told from no message. A single byte of any other value is a
// one-byte message for the length getters and for hashing, but GetMessageText still refuses it
// (every one-byte buffer), as it always has.
//
// Callers get the provider's own instance from CProvider::GetMessageTextObject. Result
// convention: true on success, false with m_oLastError loaded (sources as each method states;
// the mixed "CMessageText"/"CMessagetext" spellings are the ones callers and logs match on).
//
// Ownership: owns the buffer (getters hand out copies, SetMessageText copies in), its LastError
// record and a counted reference to its provider (no method uses it; the provider's TerminateAll
// breaks the cycle). Single-threaded, as its provider.
#ifndef QUIV_DATA_CMESSAGETEXT_H
#define QUIV_DATA_CMESSAGETEXT_H

#include <cstdint>

#include "automation/ByteArray.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "data/DataFormat.h"
#include "data/IHash.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"

namespace quiv {

class CProvider;

class QUIV_API CMessagetext final : public Object, public IHash {
 public:
  CMessagetext() = default;  // the empty message; no record, no provider
  ~CMessagetext() override;

  // The LastError property (made on the first failure).
  Ref<CErrHandler> m_oLastError;

  // Makes the message empty (source "QUIV.CMessageText.Clear").
  bool Clear();
  // The message's length in bytes; 0 for the empty message, 1 for a lone non-zero byte.
  bool GetMessagetextLengthInBytes(int32_t& o_lByteLen);
  // The bytes read as UTF-16 text: the byte count halved, rounded down; 0 for the empty message.
  bool GetMessagetextLengthInChars(int32_t& o_lCharLen);
  // A copy of the buffer. Refuses every one-byte buffer with
  // MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT; the output is then untouched.
  bool GetMessageText(ByteArray& o_abMsgTxt);
  // Copies the caller's array in as it stands, without any check.
  bool SetMessageText(const ByteArray& i_abMsgTxt);
  // The same, taking over an array the caller no longer needs (no copy of a large message).
  bool SetMessageText(ByteArray&& i_abMsgTxt);
  // Replaces the message by the data in its outside form (CConvert::LoadItem). False with
  // DATA_FORMAT_ERROR_UNABLE_TO_LOAD (source "QUIV.CMessagetext.LoadMessageText"); the converter's
  // cause is in its own record, and the buffer holds what the converter left in it.
  bool LoadMessageText(const String& i_sMessageText, DATA_FORMAT i_nLoadFormat);
  // Writes the message out (CConvert::UnloadItem, overwriting): a path for the file formats, the
  // receiving string for the string formats. False with DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD
  // (source "QUIV.CMessagetext.UnloadMessageText"); the buffer is unchanged.
  bool UnloadMessageText(String& i_sMessageText, DATA_FORMAT i_nUnloadFormat);
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  // IHash: always MESSAGETEXT; the buffer (refusing only the empty message); never a key handle
  // (KEY_ERROR_THIS_METHOD_SHOULD_ONLY_BE_CALLED_FROM_A_SESSION_KEY_OBJECT, output untouched).
  bool WhatToHash(int16_t& o_nWhat) override;
  bool GetDataAsByteArray(ByteArray& o_abData) override;
  bool GetSessionKeyHandle(HCRYPTKEY& o_lSessionKeyHandle) override;

  String TypeName() const override { return u"CMessagetext"; }

 private:
  // Internal routines: the library's own classes call them, callers do not; tests reach them
  // through InternalAccess (tests/support), which is not installed.
  friend class CProvider;
  friend class CSessionKey;
  friend struct InternalAccess;

  // Ties the message to its provider (a counted reference).
  bool SetProvider(const Ref<CProvider>& i_oProvider);
  // GetMessageText for a copy that will grow by up to `i_nRoom` bytes (same checks, same source):
  // when the target must get a new buffer anyway, the buffer has that room, so a block cipher's
  // padding does not move the copy again. A target that already fits keeps its buffer.
  bool GetMessageText(ByteArray& o_abMsgTxt, size_t i_nRoom);
  // Exchanges the buffer with the caller's array in one step, without copying or allocating:
  // the caller's array becomes the message and gets the old buffer back for reuse. Source
  // "QUIV.CMessageText.SetMessageText", as it sets the message.
  bool ExchangeMessageText(ByteArray& io_abMsgTxt);
  // Termination: drops the provider reference and the record.
  void Terminate();

  // The empty test the length getters and hashing share: one element holding 0. Reads byte 0 even
  // when the upper bound already decides, so a buffer with no elements (a caller's empty array)
  // fails with run-time error 9 as it always has.
  bool IsEmptyMessage() const;

  ByteArray m_abMessage;  // never without elements except when a caller sets an empty array
  Ref<CProvider> m_oProvider;
};

}  // namespace quiv

#endif
