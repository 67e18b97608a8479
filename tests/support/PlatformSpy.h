// PlatformSpy: a forwarding fake of the platform seam for the key and hash objects' tests. It
// records what the objects hand to the platform (flag words, hashed bytes, key parameters written)
// and fails one chosen call, optionally only for one parameter id and only from its n-th use on;
// KP_* values it is given are answered in its stead. Everything else reaches the platform that was
// installed when it was made.
#ifndef QUIV_TESTS_SUPPORT_PLATFORMSPY_H
#define QUIV_TESTS_SUPPORT_PLATFORMSPY_H

#include "support/QuietLog.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "constants/CConstQUIV.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"

namespace quiv::test {

// The platform calls these tests watch or break.
enum class Call {
  None,
  GenKey,
  DeriveKey,
  CreateHash,
  HashData,
  DestroyHash,
  DestroyKey,
  SetKeyParam,
  GetKeyParam,
  GenRandom,
  GetProvParam,
  HashSessionKey,
  GetHashParam,
};

// Records what the objects hand to the platform and fails one chosen call (optionally only
// for one parameter id, and only from its n-th use on); every other call reaches the provider.
class PlatformSpy final : public platform::ForwardingPlatform {
 public:
  static constexpr CConstQUIV kConst{};

  PlatformSpy() : ForwardingPlatform(platform::Platform()) {}

  void Break(Call call, DWORD code = static_cast<DWORD>(kConst.NTE_FAIL()), DWORD param = kAnyParam,
             int skip = 0) {
    m_broken = call;
    m_code = code;
    m_param = param;
    m_skip = skip;
  }

  BOOL CryptGenKey(HCRYPTPROV h, ALG_ID alg, DWORD flags, HCRYPTKEY* key) override {
    genKeyFlags.push_back(flags);
    if (Fails(Call::GenKey)) return FALSE;
    return ForwardingPlatform::CryptGenKey(h, alg, flags, key);
  }
  BOOL CryptDeriveKey(HCRYPTPROV h, ALG_ID alg, HCRYPTHASH hash, DWORD flags,
                      HCRYPTKEY* key) override {
    deriveKeyFlags.push_back(flags);
    if (Fails(Call::DeriveKey)) return FALSE;
    return ForwardingPlatform::CryptDeriveKey(h, alg, hash, flags, key);
  }
  BOOL CryptCreateHash(HCRYPTPROV h, ALG_ID alg, HCRYPTKEY key, DWORD flags,
                       HCRYPTHASH* hash) override {
    hashAlgs.push_back(alg);
    if (Fails(Call::CreateHash)) return FALSE;
    const BOOL made = ForwardingPlatform::CryptCreateHash(h, alg, key, flags, hash);
    if (made) ++hashesMade;
    return made;
  }
  BOOL CryptHashData(HCRYPTHASH hash, const BYTE* data, DWORD length, DWORD flags) override {
    hashed.emplace_back(data, data + length);
    if (Fails(Call::HashData)) return FALSE;
    return ForwardingPlatform::CryptHashData(hash, data, length, flags);
  }
  BOOL CryptDestroyHash(HCRYPTHASH hash) override {
    if (Fails(Call::DestroyHash)) return FALSE;
    const BOOL done = ForwardingPlatform::CryptDestroyHash(hash);
    if (done) ++hashesDestroyed;
    return done;
  }
  BOOL CryptDestroyKey(HCRYPTKEY key) override {
    ++keysDestroyed;
    if (Fails(Call::DestroyKey)) return FALSE;
    return ForwardingPlatform::CryptDestroyKey(key);
  }
  BOOL CryptSetKeyParam(HCRYPTKEY key, DWORD param, const BYTE* data, DWORD flags) override {
    DWORD value = 0;
    if (data != nullptr) std::memcpy(&value, data, sizeof value);
    setParams.emplace_back(param, value);
    if (Fails(Call::SetKeyParam, param)) return FALSE;
    return ForwardingPlatform::CryptSetKeyParam(key, param, data, flags);
  }
  BOOL CryptGetKeyParam(HCRYPTKEY key, DWORD param, BYTE* data, DWORD* length,
                        DWORD flags) override {
    if (const auto answer = answers.find(param); answer != answers.end()) {
      if (*length < 4) {
        *length = 4;
        SetLastError(static_cast<DWORD>(kConst.ERROR_MORE_DATA()));
        return FALSE;
      }
      std::memcpy(data, &answer->second, 4);
      *length = 4;
      return TRUE;
    }
    if (Fails(Call::GetKeyParam, param)) return FALSE;
    return ForwardingPlatform::CryptGetKeyParam(key, param, data, length, flags);
  }
  BOOL CryptGenRandom(HCRYPTPROV h, DWORD length, BYTE* data) override {
    if (Fails(Call::GenRandom)) return FALSE;
    return ForwardingPlatform::CryptGenRandom(h, length, data);
  }
  BOOL CryptGetProvParam(HCRYPTPROV h, DWORD param, BYTE* data, DWORD* length,
                         DWORD flags) override {
    if (Fails(Call::GetProvParam, param)) return FALSE;
    return ForwardingPlatform::CryptGetProvParam(h, param, data, length, flags);
  }
  BOOL CryptHashSessionKey(HCRYPTHASH hash, HCRYPTKEY key, DWORD flags) override {
    if (Fails(Call::HashSessionKey)) return FALSE;
    return ForwardingPlatform::CryptHashSessionKey(hash, key, flags);
  }
  BOOL CryptGetHashParam(HCRYPTHASH hash, DWORD param, BYTE* data, DWORD* length,
                         DWORD flags) override {
    if (Fails(Call::GetHashParam, param)) return FALSE;
    return ForwardingPlatform::CryptGetHashParam(hash, param, data, length, flags);
  }
  BOOL CryptImportKey(HCRYPTPROV h, const BYTE* data, DWORD length, HCRYPTKEY unwrap, DWORD flags,
                      HCRYPTKEY* key) override {
    importFlags.push_back(flags);
    return ForwardingPlatform::CryptImportKey(h, data, length, unwrap, flags, key);
  }

  // The values written with CryptSetKeyParam for one parameter.
  std::vector<DWORD> Written(int32_t param) const {
    std::vector<DWORD> values;
    for (const auto& [id, value] : setParams) {
      if (id == static_cast<DWORD>(param)) values.push_back(value);
    }
    return values;
  }

  static constexpr DWORD kAnyParam = 0xFFFFFFFF;
  std::vector<DWORD> genKeyFlags;
  std::vector<DWORD> deriveKeyFlags;
  std::vector<DWORD> importFlags;
  std::vector<ALG_ID> hashAlgs;
  std::vector<std::vector<uint8_t>> hashed;
  std::vector<std::pair<DWORD, DWORD>> setParams;
  std::map<DWORD, DWORD> answers;  // scripted KP_* values (4-byte answers)
  int hashesMade = 0;
  int hashesDestroyed = 0;
  int keysDestroyed = 0;

 private:
  bool Fails(Call call, DWORD param = kAnyParam) {
    if (call != m_broken) return false;
    if (m_param != kAnyParam && param != m_param) return false;
    if (m_skip > 0) {
      --m_skip;
      return false;
    }
    SetLastError(m_code);
    return true;
  }

  Call m_broken = Call::None;
  DWORD m_code = 0;
  DWORD m_param = kAnyParam;
  int m_skip = 0;
};

}  // namespace quiv::test

#endif
