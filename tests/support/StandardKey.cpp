#include "support/StandardKey.h"

#include <gtest/gtest.h>

#include "support/CapiCalls.h"

namespace quiv::test {

KeyHandle StandardKey(VectorCase& vector, HCRYPTPROV prov, ALG_ID procedureAlg) {
  const VectorNode in = vector.Inputs();
  const Bytes data =
      in.Has("key_hash_input") ? in["key_hash_input"].Hex() : vector.file().Shared("seq2000");
  const ALG_ID hashAlg = in.Has("key_hash_alg") ? in["key_hash_alg"].Alg() : ALG_ID{CALG_MD2};
  ALG_ID keyAlg = procedureAlg;
  if (in.Has("key_alg")) {
    keyAlg = in["key_alg"].Alg();
    if (procedureAlg != 0) {
      EXPECT_EQ(keyAlg, procedureAlg) << "key_alg disagrees with the procedure";
    }
  }
  return DeriveKey(prov, hashAlg, data, keyAlg, in["derive_flags"].Dword());
}

}  // namespace quiv::test
