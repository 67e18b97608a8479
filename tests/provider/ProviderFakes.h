// Forwarding fakes of the platform seam for the provider tests: each passes every call to the
// platform installed when it is made (the real provider, or QuietLog) except the one it is named
// after.
#ifndef QUIV_TESTS_PROVIDER_PROVIDERFAKES_H
#define QUIV_TESTS_PROVIDER_PROVIDERFAKES_H

#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "support/QuietLog.h"

namespace quiv::test {

// Answers the version query with a chosen platform id and version, and counts which acquisition
// entry point is called.
class FakeVersion final : public platform::ForwardingPlatform {
 public:
  FakeVersion(DWORD platformId, DWORD major, DWORD minor, bool fail = false)
      : ForwardingPlatform(platform::Platform()),
        m_id(platformId),
        m_major(major),
        m_minor(minor),
        m_fail(fail) {}
  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    if (m_fail) return FALSE;
    info->dwPlatformId = m_id;
    info->dwMajorVersion = m_major;
    info->dwMinorVersion = m_minor;
    return TRUE;
  }
  BOOL CryptAcquireContextA(HCRYPTPROV* p, LPCSTR c, LPCSTR n, DWORD t, DWORD f) override {
    ++narrowCalls;
    lastNarrowContainer = c == nullptr ? "<null>" : c;
    return ForwardingPlatform::CryptAcquireContextA(p, c, n, t, f);
  }
  BOOL CryptAcquireContextW(HCRYPTPROV* p, LPCWSTR c, LPCWSTR n, DWORD t, DWORD f) override {
    ++wideCalls;
    return ForwardingPlatform::CryptAcquireContextW(p, c, n, t, f);
  }
  int narrowCalls = 0;
  int wideCalls = 0;
  std::string lastNarrowContainer;

 private:
  DWORD m_id, m_major, m_minor;
  bool m_fail;
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
