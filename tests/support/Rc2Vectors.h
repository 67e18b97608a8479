// The RC2 test vectors published with the cipher's definition (RFC 2268, section 5): key bytes,
// effective key length in bits, one plaintext block and its ECB ciphertext, all in hex. Used by
// the cipher engine's tests and by the key object's, which can hold only some of the keys.
#ifndef QUIV_TESTS_SUPPORT_RC2VECTORS_H
#define QUIV_TESTS_SUPPORT_RC2VECTORS_H

#include <array>
#include <cstdint>
#include <string_view>

namespace quiv::test {

struct Rc2Vector {
  std::string_view key;
  uint32_t effectiveBits;
  std::string_view plain;
  std::string_view cipher;

  size_t KeyBytes() const { return key.size() / 2; }
};

inline constexpr std::array<Rc2Vector, 8> kRc2Vectors{{
    {"0000000000000000", 63, "0000000000000000", "ebb773f993278eff"},
    {"ffffffffffffffff", 64, "ffffffffffffffff", "278b27e42e2f0d49"},
    {"3000000000000000", 64, "1000000000000001", "30649edf9be7d2c2"},
    {"88", 64, "0000000000000000", "61a8a244adacccf0"},
    {"88bca90e90875a", 64, "0000000000000000", "6ccf4308974c267f"},
    {"88bca90e90875a7f0f79c384627bafb2", 64, "0000000000000000", "1a807d272bbe5db1"},
    {"88bca90e90875a7f0f79c384627bafb2", 128, "0000000000000000", "2269552ab0f85ca6"},
    {"88bca90e90875a7f0f79c384627bafb216f80a6f85920584c42fceb0be255daf1e", 129, "0000000000000000",
     "5b78d3a43dfff1f1"},
}};

}  // namespace quiv::test

#endif
