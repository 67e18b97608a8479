// IHash: the contract through which the hash and signature operations ask an object what it is
// and get what they hash from it. A consumer asks WhatToHash first, then takes either the bytes
// (GetDataAsByteArray: message text, the four key-pair kinds) or a session-key handle
// (GetSessionKeyHandle: SESSION_KEY).
//
// Implemented by CMessagetext, CSessionKey and CRSAKeyPair. IHash is also a class of its own
// that callers cannot create: its three operations do nothing, leave the output untouched and
// return false, which is what these defaults are.
//
// Result convention: true on success; on false the implementing object's LastError holds the
// detail (IHash itself records nothing). Ownership: the interface holds nothing.
#ifndef QUIV_DATA_IHASH_H
#define QUIV_DATA_IHASH_H

#include <cstdint>

#include "automation/ByteArray.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

namespace quiv {

// What an IHash object stands for, as its WhatToHash answers (16-bit values).
enum WHAT_TO_HASH : int16_t {
  UNSPECIFIED = 0,            // nothing stated
  SESSION_KEY = 1,            // a session key: hash it through its key handle
  PRIVATE_EXCHANGE_KEY = 2,   // an exchange key pair holding its private key
  PUBLIC_EXCHANGE_KEY = 3,    // an exchange key pair holding only its public key
  PRIVATE_SIGNATURE_KEY = 4,  // a signature key pair holding its private key
  PUBLIC_SIGNATURE_KEY = 5,   // a signature key pair holding only its public key
  MESSAGETEXT = 6,            // message text: hash its bytes
};

class QUIV_API IHash {
 public:
  IHash() = default;
  IHash(const IHash&) = delete;
  IHash& operator=(const IHash&) = delete;
  virtual ~IHash();

  // Receives a WHAT_TO_HASH value.
  virtual bool WhatToHash(int16_t& o_nWhat);
  // Receives the bytes to hash.
  virtual bool GetDataAsByteArray(ByteArray& o_abData);
  // Receives the session key's CryptoAPI key handle.
  virtual bool GetSessionKeyHandle(HCRYPTKEY& o_lSessionKeyHandle);
};

}  // namespace quiv

#endif
