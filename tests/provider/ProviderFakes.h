// Forwarding fakes of the platform seam for the provider tests: each passes every call to the
// platform installed when it is made (the real provider, or QuietLog) except the ones it is named
// after; and scripted answers for FakeProvParam.
#ifndef QUIV_TESTS_PROVIDER_PROVIDERFAKES_H
#define QUIV_TESTS_PROVIDER_PROVIDERFAKES_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "support/QuietLog.h"

namespace quiv::test {

// What an entry point was given for a string argument ("<null>" for a null pointer).
inline std::string Recorded(LPCSTR text) {
  return text == nullptr ? "<null>" : text;
}
inline std::u16string Recorded(LPCWSTR text) {
  return text == nullptr ? u"<null>" : text;
}

// Answers the version query with a chosen platform id and version (keeping the size field the
// caller set), counts which acquisition entry point is called and keeps the strings it was given.
class FakeVersion final : public platform::ForwardingPlatform {
 public:
  FakeVersion(DWORD platformId, DWORD major, DWORD minor, bool fail = false)
      : ForwardingPlatform(platform::Platform()),
        m_id(platformId),
        m_major(major),
        m_minor(minor),
        m_fail(fail) {}
  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    versionInfoSize = info->dwOSVersionInfoSize;
    if (m_fail) return FALSE;
    info->dwPlatformId = m_id;
    info->dwMajorVersion = m_major;
    info->dwMinorVersion = m_minor;
    return TRUE;
  }
  BOOL CryptAcquireContextA(HCRYPTPROV* p, LPCSTR c, LPCSTR n, DWORD t, DWORD f) override {
    ++narrowCalls;
    lastNarrowContainer = Recorded(c);
    lastNarrowProvider = Recorded(n);
    return ForwardingPlatform::CryptAcquireContextA(p, c, n, t, f);
  }
  BOOL CryptAcquireContextW(HCRYPTPROV* p, LPCWSTR c, LPCWSTR n, DWORD t, DWORD f) override {
    ++wideCalls;
    lastWideContainer = Recorded(c);
    lastWideProvider = Recorded(n);
    return ForwardingPlatform::CryptAcquireContextW(p, c, n, t, f);
  }
  int narrowCalls = 0;
  int wideCalls = 0;
  std::string lastNarrowContainer;
  std::string lastNarrowProvider;
  std::u16string lastWideContainer;
  std::u16string lastWideProvider;
  DWORD versionInfoSize = 0;

 private:
  DWORD m_id, m_major, m_minor;
  bool m_fail;
};

// Keeps the flags of every acquisition and counts the releases. The acquisitions whose number
// (counting from 1) is in `refused` fail with `error` without reaching the provider.
class AcquireLog final : public platform::ForwardingPlatform {
 public:
  explicit AcquireLog(std::set<size_t> refused = {}, DWORD error = 0)
      : ForwardingPlatform(platform::Platform()), m_refused(std::move(refused)), m_error(error) {}
  BOOL CryptAcquireContextA(HCRYPTPROV* p, LPCSTR c, LPCSTR n, DWORD t, DWORD f) override {
    if (Refuse(f)) return FALSE;
    return ForwardingPlatform::CryptAcquireContextA(p, c, n, t, f);
  }
  BOOL CryptAcquireContextW(HCRYPTPROV* p, LPCWSTR c, LPCWSTR n, DWORD t, DWORD f) override {
    if (Refuse(f)) return FALSE;
    return ForwardingPlatform::CryptAcquireContextW(p, c, n, t, f);
  }
  BOOL CryptReleaseContext(HCRYPTPROV h, DWORD f) override {
    ++releases;
    return ForwardingPlatform::CryptReleaseContext(h, f);
  }
  std::vector<DWORD> flags;
  int releases = 0;

 private:
  bool Refuse(DWORD f) {
    flags.push_back(f);
    if (m_refused.count(flags.size()) == 0) return false;
    SetLastError(m_error);
    return true;
  }
  std::set<size_t> m_refused;
  DWORD m_error;
};

// Destroying keys, or hashes, fails with NTE_PERM. The handle stays live: the provider frees it
// with its context, or a later Clear does once the fake is gone.
class FailingDestroy final : public platform::ForwardingPlatform {
 public:
  enum class What { Keys, Hashes };
  static constexpr DWORD kError = static_cast<DWORD>(NTE_PERM);
  explicit FailingDestroy(What what) : ForwardingPlatform(platform::Platform()), m_what(what) {}
  BOOL CryptDestroyKey(HCRYPTKEY h) override {
    return m_what == What::Keys ? Refuse() : ForwardingPlatform::CryptDestroyKey(h);
  }
  BOOL CryptDestroyHash(HCRYPTHASH h) override {
    return m_what == What::Hashes ? Refuse() : ForwardingPlatform::CryptDestroyHash(h);
  }

 private:
  BOOL Refuse() {
    SetLastError(kError);
    return FALSE;
  }
  What m_what;
};

// Replaces CryptGetProvParam for one parameter id with a scripted answer.
class FakeProvParam final : public platform::ForwardingPlatform {
 public:
  using Answer = std::function<BOOL(BYTE*, DWORD*, DWORD)>;
  FakeProvParam(DWORD id, Answer answer)
      : ForwardingPlatform(platform::Platform()), m_id(id), m_answer(std::move(answer)) {}
  BOOL CryptGetProvParam(HCRYPTPROV h, DWORD id, BYTE* data, DWORD* len, DWORD flags) override {
    if (id == m_id) return m_answer(data, len, flags);
    return ForwardingPlatform::CryptGetProvParam(h, id, data, len, flags);
  }

 private:
  DWORD m_id;
  Answer m_answer;
};

// The result of `call` made while a FakeProvParam answers `id` with `answer`.
inline bool WithProvParam(int32_t id, FakeProvParam::Answer answer,
                          const std::function<bool()>& call) {
  FakeProvParam fake(static_cast<DWORD>(id), std::move(answer));
  platform::ScopedPlatformOverride use(fake);
  return call();
}

// A fixed 4-byte parameter, answered with the usual size query.
inline FakeProvParam::Answer FixedBytes(std::vector<BYTE> bytes) {
  return [bytes](BYTE* data, DWORD* len, DWORD) -> BOOL {
    if (*len < bytes.size()) {
      *len = static_cast<DWORD>(bytes.size());
      platform::Platform().SetLastError(ERROR_MORE_DATA);
      return FALSE;
    }
    std::memcpy(data, bytes.data(), bytes.size());
    *len = static_cast<DWORD>(bytes.size());
    return TRUE;
  };
}

// Every call fails with `error`, the size query included.
inline FakeProvParam::Answer Refused(DWORD error) {
  return [error](BYTE*, DWORD*, DWORD) -> BOOL {
    platform::Platform().SetLastError(error);
    return FALSE;
  };
}

// The size query (length 0) is told `size`; the data call then fails with `error`.
inline FakeProvParam::Answer DataCallRefused(DWORD size, DWORD error) {
  return [size, error](BYTE*, DWORD* len, DWORD) -> BOOL {
    const bool sizeQuery = *len == 0;
    *len = sizeQuery ? size : *len;
    platform::Platform().SetLastError(sizeQuery ? static_cast<DWORD>(ERROR_MORE_DATA) : error);
    return FALSE;
  };
}

// A scripted enumeration for FakeProvParam (it must outlive the fake): CRYPT_FIRST starts over;
// a length too small for the next item is told the item's size (ERROR_MORE_DATA) and the item
// stays next; past the last item the call fails with `endError`. Keeps every call's flags. Past
// kMostCalls calls every call gets `endError`, so a loop that keeps starting over fails its test
// instead of hanging it.
struct Enumeration {
  static constexpr size_t kMostCalls = 64;
  explicit Enumeration(std::vector<std::vector<BYTE>> i_items,
                       DWORD i_endError = static_cast<DWORD>(ERROR_NO_MORE_ITEMS))
      : items(std::move(i_items)), endError(i_endError) {}
  std::vector<std::vector<BYTE>> items;
  DWORD endError;
  std::vector<DWORD> flags;
  size_t next = 0;

  FakeProvParam::Answer Answer() {
    return [this](BYTE* data, DWORD* len, DWORD f) -> BOOL { return Call(data, len, f); };
  }
  BOOL Call(BYTE* data, DWORD* len, DWORD f) {
    flags.push_back(f);
    if ((f & CRYPT_FIRST) != 0) next = 0;
    if (next == items.size() || flags.size() > kMostCalls) return Fail(endError);
    const std::vector<BYTE>& item = items[next];
    const auto size = static_cast<DWORD>(item.size());
    if (*len < size) {
      *len = size;
      return Fail(static_cast<DWORD>(ERROR_MORE_DATA));
    }
    std::memcpy(data, item.data(), item.size());
    *len = size;
    ++next;
    return TRUE;
  }
  static BOOL Fail(DWORD error) {
    platform::Platform().SetLastError(error);
    return FALSE;
  }
};

// Release that fails (and still releases the real context, so nothing leaks).
class FailingRelease final : public platform::ForwardingPlatform {
 public:
  FailingRelease() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptReleaseContext(HCRYPTPROV h, DWORD f) override {
    ForwardingPlatform::CryptReleaseContext(h, f);
    SetLastError(static_cast<DWORD>(NTE_BAD_UID));
    return FALSE;
  }
};

}  // namespace quiv::test

#endif
