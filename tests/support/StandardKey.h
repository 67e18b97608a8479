// StandardKey: the "standard key" of windows-csp.json's conventions, made through the C
// functions: CryptCreateHash(CALG_MD2), CryptHashData over seq2000 (flags 0), CryptDeriveKey(alg,
// hash, flags) with the key length in the high 16 bits of the flags. A vector that records the
// hash input, the hash algorithm or the key algorithm among its inputs has them read from there
// (so they count as read); otherwise the conventions' values apply. The derivation flags are
// always the vector's "derive_flags".
#ifndef QUIV_TESTS_SUPPORT_STANDARDKEY_H
#define QUIV_TESTS_SUPPORT_STANDARDKEY_H

#include "platform/wincrypt.h"
#include "support/CapiHandle.h"
#include "support/VectorCase.h"

namespace quiv::test {

// `procedureAlg` is the key algorithm the procedure text names (0 when the vector records it as
// "key_alg"); when both exist they must agree.
KeyHandle StandardKey(VectorCase& vector, HCRYPTPROV prov, ALG_ID procedureAlg = 0);

}  // namespace quiv::test

#endif
