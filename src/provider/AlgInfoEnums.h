// AlgInfoEnums: which algorithms a catalogue shows. The values are the algorithm-class field of
// an algorithm identifier (bits 13-15); ALL_ALGORITHMS sets all three bits and means no filter.
#ifndef QUIV_PROVIDER_ALGINFOENUMS_H
#define QUIV_PROVIDER_ALGINFOENUMS_H

#include <cstdint>

namespace quiv {

enum CLASS_OF_ALGORITHMS_TO_SHOW : int32_t {
  SIGNATURE_CIPHERS = 8192,      // ALG_CLASS_SIGNATURE
  SYMMETRIC_CIPHERS = 24576,     // ALG_CLASS_DATA_ENCRYPT
  HASHES = 32768,                // ALG_CLASS_HASH
  KEY_EXCHANGE_CIPHERS = 40960,  // ALG_CLASS_KEY_EXCHANGE
  ALL_ALGORITHMS = 57344,        // every class
};

}  // namespace quiv

#endif
