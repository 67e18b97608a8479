// What the fuzz targets share: a broken property stops the run where it broke, and the recorded
// keys' hex text as bytes.
#ifndef QUIV_FUZZ_FUZZSUPPORT_H
#define QUIV_FUZZ_FUZZSUPPORT_H

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace fuzz {

// abort() is what libFuzzer reports as a crash with the input that caused it.
inline void Require(bool condition) {
  if (!condition) std::abort();
}

// Hex text without separators, as the recorded keys are written.
inline std::vector<uint8_t> FromHex(const char* hex) {
  std::vector<uint8_t> out;
  for (const char* p = hex; p[0] && p[1]; p += 2) {
    out.push_back(static_cast<uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
  }
  return out;
}

}  // namespace fuzz

#endif
