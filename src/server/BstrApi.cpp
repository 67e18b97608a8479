// The platform's BSTR functions. A BSTR is a block of [4 spare bytes][4-byte length in bytes]
// [the bytes][a 2-byte zero], handed out as a pointer to the bytes: SysStringByteLen reads the
// length just before them, C code reads the string up to the terminator. The spare bytes keep the
// characters 8-byte aligned, as the platform's allocator does on 64-bit systems.
#include <cstdlib>
#include <cstring>
#include <limits>

#include "server/quiv_com.h"

namespace {

constexpr size_t kHeaderBytes = 8;
constexpr size_t kLengthOffset = 4;

char* BlockOf(BSTR bstr) {
  return reinterpret_cast<char*>(bstr) - kHeaderBytes;
}

// An uninitialised BSTR of `bytes` bytes with its length and its terminator set, or NULL when
// the length does not fit the 32-bit prefix or memory is short.
BSTR AllocateBytes(size_t bytes) {
  if (bytes > std::numeric_limits<UINT>::max() - kHeaderBytes - sizeof(OLECHAR)) return nullptr;
  // Room for the terminator after an odd byte count too: a zero byte, then a zero unit.
  const size_t total = kHeaderBytes + bytes + 1 + sizeof(OLECHAR);
  auto* block = static_cast<char*>(std::malloc(total));
  if (block == nullptr) return nullptr;
  const auto length = static_cast<uint32_t>(bytes);
  std::memcpy(block + kLengthOffset, &length, sizeof(length));
  std::memset(block + kHeaderBytes + bytes, 0, 1 + sizeof(OLECHAR));
  return reinterpret_cast<BSTR>(block + kHeaderBytes);
}

size_t UnitCount(const OLECHAR* psz) {
  size_t n = 0;
  while (psz[n] != 0) ++n;
  return n;
}

}  // namespace

extern "C" {

QUIV_API BSTR SysAllocStringByteLen(LPCSTR psz, UINT len) {
  BSTR bstr = AllocateBytes(len);
  if (bstr == nullptr) return nullptr;
  char* bytes = reinterpret_cast<char*>(bstr);
  if (psz != nullptr) {
    std::memcpy(bytes, psz, len);
  } else {
    std::memset(bytes, 0, len);
  }
  return bstr;
}

QUIV_API BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui) {
  if (ui > std::numeric_limits<UINT>::max() / sizeof(OLECHAR)) return nullptr;
  return SysAllocStringByteLen(reinterpret_cast<LPCSTR>(strIn), ui * sizeof(OLECHAR));
}

QUIV_API BSTR SysAllocString(const OLECHAR* psz) {
  if (psz == nullptr) return nullptr;
  const size_t units = UnitCount(psz);
  if (units > std::numeric_limits<UINT>::max()) return nullptr;
  return SysAllocStringLen(psz, static_cast<UINT>(units));
}

QUIV_API void SysFreeString(BSTR bstrString) {
  if (bstrString != nullptr) std::free(BlockOf(bstrString));
}

QUIV_API UINT SysStringByteLen(BSTR bstr) {
  if (bstr == nullptr) return 0;
  uint32_t length = 0;
  std::memcpy(&length, BlockOf(bstr) + kLengthOffset, sizeof(length));
  return length;
}

QUIV_API UINT SysStringLen(BSTR pbstr) {
  return SysStringByteLen(pbstr) / sizeof(OLECHAR);
}

// The new string is made before the old one is freed, so `psz` may point into *pbstr.
QUIV_API INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
  if (pbstr == nullptr) return FALSE;
  BSTR fresh = SysAllocStringLen(psz, len);
  if (fresh == nullptr) return FALSE;
  SysFreeString(*pbstr);
  *pbstr = fresh;
  return TRUE;
}

QUIV_API INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
  if (pbstr == nullptr) return FALSE;
  if (psz == nullptr) {
    SysFreeString(*pbstr);
    *pbstr = nullptr;
    return TRUE;
  }
  const size_t units = UnitCount(psz);
  if (units > std::numeric_limits<UINT>::max()) return FALSE;
  return SysReAllocStringLen(pbstr, psz, static_cast<UINT>(units));
}

}  // extern "C"
