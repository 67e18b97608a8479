#include "data/IHash.h"

namespace quiv {

IHash::~IHash() = default;

// The published class: every operation declines and leaves the output as it was.
bool IHash::WhatToHash(int16_t& /*o_nWhat*/) {
  return false;
}

bool IHash::GetDataAsByteArray(ByteArray& /*o_abData*/) {
  return false;
}

bool IHash::GetSessionKeyHandle(HCRYPTKEY& /*o_lSessionKeyHandle*/) {
  return false;
}

}  // namespace quiv
