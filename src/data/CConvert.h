// CConvert: the converter between the library's byte arrays and the outside world. Every method
// that takes or returns data (message text, keys, initialisation vectors, hashes, signatures,
// fingerprints) hands a string plus a DATA_FORMAT to LoadItem (outside form to bytes) or
// UnloadItem (bytes to outside form). Clients cannot create one; each object that needs it holds
// its own instance.
//
// Layouts:
// - hex text: two upper-case digits per byte ("0123456789ABCDEF"), in byte order, nothing else
//   (no prefix, separator or line break). Input is accepted in exactly that form.
// - STRING_VB: the string's storage as it stands, each code unit low byte first, so a string of
//   n characters is 2n bytes; no code page conversion.
// - empty: a byte array of one element holding 0 counts as no data, so a lone 0x00 byte cannot
//   be told from nothing.
// - files: a binary load opens the path for reading and writing, creating a missing file empty;
//   a binary unload writes from the first byte without truncating, so a longer existing file
//   keeps its old tail. Hex files are read and written as one-byte text (each byte one
//   character); a hex unload replaces the file and writes no line break, and a hex file that
//   ends with a line break no longer loads.
//
// Result convention: every routine returns true on success and false on failure, with the
// failure loaded into m_oLastError (number, "QUIV.CConvert.<Routine>" and the routine's
// parameters, see each routine). A routine that calls another converter routine sees that
// routine's failure in the same record and then raises its own code; nothing throws.
//
// Ownership: the converter owns its LastError record and the files its binary routines hold
// open (the file facility). A binary load that finds an empty file leaves that file open until
// the next binary load or unload closes all of them, or the converter goes. Single-threaded, as
// its owner.
#ifndef QUIV_DATA_CCONVERT_H
#define QUIV_DATA_CCONVERT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "automation/ByteArray.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "data/DataFormat.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API CConvert final : public Object {
 public:
  // Creates the LastError record (source "QUIV.CConvert.Class_Initialize").
  CConvert();
  ~CConvert() override;

  // The LastError property: the record of the last failure (created with the converter).
  Ref<CErrHandler> m_oLastError;

  // Outside form to bytes. o_abData is reset to the empty array first and holds the bytes on
  // success (lower bound 0). False with, in the record:
  //   FILE_BINARY  DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED for an empty (or missing,
  //                now created) file; run-time 75/76 when the path cannot be opened.
  //   FILE_HEX     DATA_FORMAT_ERROR_UNABLE_TO_LOAD when the file cannot be read,
  //                DATA_FORMAT_ERROR_BYTE_ARRAY_TO_UNLOAD_IS_EMPTY when its text is not hex.
  //   STRING_HEX   DATA_FORMAT_ERROR_STRING_TO_LOAD_IS_EMPTY for "",
  //                DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED when it is not hex.
  //   STRING_VB    DATA_FORMAT_ERROR_STRING_TO_LOAD_IS_EMPTY for "".
  //   other (CURRENT_KEY_CONTAINER, negative, > 4) DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED.
  //   DATA_FORMAT_ERROR_WHAT_WAS_LOADED_CONTAINS_NO_DATA when the result is the single byte 0.
  // Parameters: "Len of byte array" (the output's upper bound, that is length - 1, as the label
  // has always been used), "i_sDataSource", "i_nLoadFormat".
  bool LoadItem(const String& i_sDataSource, DATA_FORMAT i_nLoadFormat, ByteArray& o_abData);

  // Bytes to outside form: io_sDataSource is the path for the file formats and receives the
  // text for the string formats. i_fOverwrite must be true for FILE_BINARY (false fails with
  // run-time error 52 before the file is touched); the other formats ignore it. False with:
  //   DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED for the empty array (io_sDataSource is
  //   then left as given); an array with no elements at all fails with run-time error 9, as
  //   reading its byte 0 does.
  //   FILE_HEX DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD when the file cannot be written.
  //   other formats DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED.
  // Parameters: "Len of byte array" (the input's upper bound), "io_sDataSource",
  // "i_nUnloadFormat".
  bool UnloadItem(const ByteArray& i_abData, String& io_sDataSource, DATA_FORMAT i_nUnloadFormat,
                  bool i_fOverwrite);

  // The fingerprint of i_abData: its hex text in groups of four digits joined by the separator
  // of io_sFingerprintFormat, then unloaded as the text's own bytes. With STRING_VB the caller
  // gets the text ("0123-4567-89"); with STRING_HEX or FILE_HEX the hex of its UTF-16 units
  // ("AB" gives "41004200"); with FILE_BINARY those units in the file. False with
  // DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT (either unload failed) or
  // FINGERPRINT_ERROR_UNABLE_TO_FORMAT_FINGERPRINT (unknown format). Parameters:
  // "io_sFingerprintFormat", "io_sFingerprint", "i_nUnloadFormat".
  bool UnloadFingerprint(const ByteArray& i_abData, FINGERPRINT_FORMAT io_sFingerprintFormat,
                         String& io_sFingerprint, DATA_FORMAT i_nUnloadFormat);

  // Hex text to bytes; "" gives the empty array. o_abData changes only on success. False with
  // DATA_FORMAT_ERROR_CORRUPT_HEX_FILE (odd length) or
  // DATA_FORMAT_ERROR_HEX_FILE_UNABLE_TO_BE_CONVERTED_TO_BYTE_ARRAY (a pair that is not two
  // upper-case digits; DeHex's failure for that pair is recorded first). No parameters.
  bool HexStringToByteArray(const String& i_sHex, ByteArray& o_abData);

  // One pair of upper-case hex digits to its value. False with DATA_FORMAT_ERROR_INVALID_HEX_VALUE
  // for a length other than 2 or a character outside "0123456789ABCDEF". Parameter "i_sHex".
  bool DeHex(const String& i_sHex, int16_t& o_nValue);

  // Groups io_sFingerprint in fours with the format's separator, in place. False with
  // GENERAL_ERROR_EMPTY_INPUT_DATA_SUPPLIED for "", FINGERPRINT_ERROR_UNKNOWN_FORMAT_SPECIFIED
  // for a value outside 0..5, or run-time error 6 (overflow) when the text outgrows the 16-bit
  // position counter: from 32765 characters on, as the counter steps past the last group.
  // No parameters.
  bool FormatFingerprint(String& io_sFingerprint, FINGERPRINT_FORMAT io_sFingerprintFormat);

  // The whole file as one-byte text (each byte one character, line breaks included). False with
  // DATA_FORMAT_ERROR_NOTHING_TO_LOAD when no such file exists, or a run-time error when it
  // cannot be read. Parameters "o_sData", "i_sFile".
  bool ReadFileASCIIToString(const String& i_sFile, String& o_sData);

  // Replaces i_sFile with i_sString as one-byte text, without a line break. A character above
  // U+00FF cannot be written in one byte: run-time error 5. Other failures are run-time errors
  // of the file system. No parameters.
  bool WriteStringToFileASCII(const String& i_sString, const String& i_sFile);

  // Creates the record if needed and hands it the page context (source
  // "QUIV.CConvert.OnStartPage").
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  // How many files the file facility holds open (for diagnostics and tests).
  size_t OpenFileCount() const { return m_anOpenFiles.size(); }

  String TypeName() const override { return u"CConvert"; }

 private:
  // The file facility: open a binary file (created when missing) and keep it until CloseAll.
  int OpenBinary(const String& i_sPath);
  void CloseAllFiles() noexcept;

  std::vector<int> m_anOpenFiles;
};

}  // namespace quiv

#endif
