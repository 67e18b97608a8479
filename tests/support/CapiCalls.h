// Small helpers over the CryptoAPI C functions for the vector tests: result checks that report
// GetLastError() in hex, reads of DWORD and byte-string parameters under the two-call size rule,
// and the key and hash building blocks that many recorded procedures share.
//
// Readers that expect success add a GoogleTest failure (naming the call and the error) and
// return kNoValue / an empty vector when the call fails, so a procedure can go on and report
// every mismatch of one run.
#ifndef QUIV_TESTS_SUPPORT_CAPICALLS_H
#define QUIV_TESTS_SUPPORT_CAPICALLS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/wincrypt.h"
#include "support/CapiHandle.h"

namespace quiv::test {

using Bytes = std::vector<uint8_t>;

inline constexpr DWORD kNoValue = 0xffffffffu;  // what a failed DWORD read returns

std::string Hex(std::span<const uint8_t> bytes);
std::string ErrorText(DWORD code);  // "0x80090009 (NTE_BAD_FLAGS)"

// Evaluate these right after the call: they read GetLastError().
::testing::AssertionResult Succeeded(BOOL ok);
::testing::AssertionResult FailedWith(BOOL ok, DWORD expected);
::testing::AssertionResult FailedWithAnyOf(BOOL ok, std::span<const uint32_t> expected);
::testing::AssertionResult FailedWithAnyCode(BOOL ok);

// Parameter reads. `bufferSize` is the size of the buffer handed to the provider.
DWORD ProvDword(HCRYPTPROV prov, DWORD param, DWORD flags = 0);
Bytes ProvBytes(HCRYPTPROV prov, DWORD param, DWORD bufferSize, DWORD flags = 0);
DWORD KeyDword(HCRYPTKEY key, DWORD param);
DWORD KeyParamSize(HCRYPTKEY key, DWORD param);  // NULL buffer, *pdwDataLen = 0 on entry
Bytes KeyBytes(HCRYPTKEY key, DWORD param);      // size query, then a buffer of that size
DWORD HashDword(HCRYPTHASH hash, DWORD param);
DWORD HashParamSize(HCRYPTHASH hash, DWORD param);
Bytes HashBytes(HCRYPTHASH hash, DWORD param, DWORD bufferSize);

// Building blocks; each adds a failure and returns an empty handle / vector when a call fails.
HashHandle CreateHash(HCRYPTPROV prov, ALG_ID alg, HCRYPTKEY key = 0);
HashHandle HashOf(HCRYPTPROV prov, ALG_ID alg, std::span<const uint8_t> data);
// CryptCreateHash(hashAlg), CryptHashData(data, 0), CryptDeriveKey(keyAlg, flags).
KeyHandle DeriveKey(HCRYPTPROV prov, ALG_ID hashAlg, std::span<const uint8_t> data, ALG_ID keyAlg,
                    DWORD flags);
KeyHandle ImportKey(HCRYPTPROV prov, std::span<const uint8_t> blob, HCRYPTKEY pubKey, DWORD flags);
Bytes ExportKey(HCRYPTKEY key, HCRYPTKEY expKey, DWORD blobType);  // size query, then export
DWORD SetDwordKeyParam(HCRYPTKEY key, DWORD param, DWORD value);   // returns 0 or GetLastError
HMAC_INFO HmacInfo(ALG_ID hashAlg, Bytes* inner = nullptr, Bytes* outer = nullptr);

}  // namespace quiv::test

// GetLastError() is primed with a value no provider reports, so a failing call that forgets to
// set the error cannot pass on a code left over from an earlier call.
#define QUIV_EXPECT_FAILS_WITH(call, code)                                                       \
  EXPECT_TRUE(                                                                                   \
      (::SetLastError(0x5eed5eedu), ::quiv::test::FailedWith((call), static_cast<DWORD>(code)))) \
      << #call
#define QUIV_EXPECT_SUCCEEDS(call) EXPECT_TRUE(::quiv::test::Succeeded(call)) << #call
#define QUIV_ASSERT_SUCCEEDS(call) ASSERT_TRUE(::quiv::test::Succeeded(call)) << #call

#endif
