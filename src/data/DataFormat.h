// DataFormat: the two public enumerations through which every method that takes or returns data
// says where the data is and how it is written (CConvert does the conversions).
//
// DATA_FORMAT names the outside form of a byte array: a file of raw bytes, a file of hex text,
// a hex string, or a string whose UTF-16 code units carry the bytes as they are. The key classes
// handle CURRENT_KEY_CONTAINER themselves; the converter refuses it.
//
// FINGERPRINT_FORMAT names the separator put between the four-digit groups of a fingerprint.
//
// Both are unscoped with a signed 32-bit base, as the automation interface publishes them, so
// any 32-bit number (including ones outside the lists, which the converter refuses) can be
// passed through them.
#ifndef QUIV_DATA_DATAFORMAT_H
#define QUIV_DATA_DATAFORMAT_H

#include <cstdint>

namespace quiv {

enum DATA_FORMAT : int32_t {
  FILE_BINARY = 0,            // a file path; the file holds the raw bytes
  FILE_HEX = 1,               // a file path; the file holds the bytes as hex text
  STRING_HEX = 2,             // the string is the hex text
  STRING_VB = 3,              // the string's code units are the bytes, low byte first
  CURRENT_KEY_CONTAINER = 4,  // handled by the key classes, refused by the converter
};

enum FINGERPRINT_FORMAT : int32_t {
  SPACES = 0,                 // "0123 4567"
  HYPHENS = 1,                // "0123-4567"
  DOUBLE_HYPHENS = 2,         // "0123--4567"
  HYPHENS_SPACED = 3,         // "0123 - 4567"
  DOUBLE_HYPHENS_SPACED = 4,  // "0123 -- 4567"
  NOFORMAT = 5,               // "01234567"
};

}  // namespace quiv

#endif
