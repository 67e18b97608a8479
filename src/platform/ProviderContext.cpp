#include "platform/ProviderContext.h"

#include <cstring>
#include <span>

#include "platform/ContainerKeyCache.h"
#include "platform/CspError.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SizedOutput.h"

namespace quiv::platform {

namespace {

constexpr DWORD kProviderVersion = 0x00000200;  // PP_VERSION: 2.0, all three providers
constexpr DWORD kKeySizeIncrement = 8;          // PP_SIG_KEYSIZE_INC, PP_KEYX_KEYSIZE_INC

std::optional<ContainerStore> MakeStore(StoreScope scope) {
  try {
    return ContainerStore(scope);
  } catch (const CspError&) {
    // No home folder: the context still works (verify contexts, provider parameters); the
    // store's error is reported by the first call that needs the store.
    return std::nullopt;
  }
}

// A string parameter: the bytes and their NUL.
void WriteString(std::string_view text, BYTE* pbData, DWORD* pdwDataLen) {
  std::vector<uint8_t> bytes(text.begin(), text.end());
  bytes.push_back(0);
  SizedOutput::Write(bytes, pbData, pdwDataLen);
}

}  // namespace

ProviderContext::ProviderContext(const ProviderInfo& provider, DWORD provType, StoreScope scope,
                                 std::string container, bool verify)
    : m_provider(provider),
      m_provType(provType),
      m_scope(scope),
      m_container(std::move(container)),
      m_verify(verify),
      m_userStore(MakeStore(StoreScope::User)),
      m_machineStore(MakeStore(StoreScope::Machine)) {}

ProviderContext::~ProviderContext() = default;

ContainerStore& ProviderContext::Store(StoreScope scope) {
  std::optional<ContainerStore>& store =
      scope == StoreScope::Machine ? m_machineStore : m_userStore;
  if (!store) throw CspError(NTE_FAIL);
  return *store;
}

size_t ProviderContext::SlotIndex(DWORD keySpec) {
  if (keySpec == AT_KEYEXCHANGE) return 0;
  if (keySpec == AT_SIGNATURE) return 1;
  throw CspError(NTE_BAD_KEY);
}

const RsaKey& ProviderContext::Pair(DWORD keySpec) {
  const size_t slot = SlotIndex(keySpec);
  if (!m_loaded[slot] && !m_verify) {
    // Read from the container now; the parsed key may come from an earlier open of the same
    // unchanged container in this process.
    m_pairs[slot] =
        ContainerKeyCache::Instance().Load(Store(m_scope), m_container, keySpec, m_provider);
    m_loaded[slot] = true;
  }
  if (!m_pairs[slot]) throw CspError(NTE_NO_KEY);
  return *m_pairs[slot];
}

void ProviderContext::KeepPair(const RsaKey& pair) {
  const DWORD keySpec = pair.algid() == CALG_RSA_SIGN ? AT_SIGNATURE : AT_KEYEXCHANGE;
  const size_t slot = SlotIndex(keySpec);
  std::shared_ptr<const RsaKey> copy = pair.Clone();
  // Written before the handle is handed out, so a crash right after CryptGenKey or
  // CryptImportKey returns never loses the pair.
  if (!m_verify) Store(m_scope).StorePair(m_container, keySpec, pair.StoredForm());
  m_pairs[slot] = std::move(copy);
  m_loaded[slot] = true;
}

std::string ProviderContext::UniqueName() const {
  return ContainerStore::UniqueContainerName(m_container);
}

void ProviderContext::GetParam(DWORD param, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) {
  if (pdwDataLen == nullptr) throw CspError(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
  switch (param) {
    case PP_ENUMALGS:
    case PP_ENUMALGS_EX:
      return EnumAlgorithms(param == PP_ENUMALGS_EX, pbData, pdwDataLen, flags);
    case PP_ENUMCONTAINERS:
      return EnumContainers(pbData, pdwDataLen, flags);
    case PP_NAME:
      return WriteString(m_provider.name(), pbData, pdwDataLen);
    case PP_CONTAINER:
      // A verify context has no container; its name is reported empty (unconfirmed).
      return WriteString(m_container, pbData, pdwDataLen);
    case PP_UNIQUE_CONTAINER:
      return WriteString(UniqueName(), pbData, pdwDataLen);
    case PP_PROVTYPE:
      return SizedOutput::WriteDword(m_provType, pbData, pdwDataLen);
    case PP_VERSION:
      return SizedOutput::WriteDword(kProviderVersion, pbData, pdwDataLen);
    case PP_IMPTYPE:
      return SizedOutput::WriteDword(CRYPT_IMPL_SOFTWARE, pbData, pdwDataLen);
    case PP_KEYSPEC:
      return SizedOutput::WriteDword(AT_KEYEXCHANGE | AT_SIGNATURE, pbData, pdwDataLen);
    case PP_KEYSET_TYPE:
      return SizedOutput::WriteDword(m_scope == StoreScope::Machine ? CRYPT_MACHINE_KEYSET : 0,
                                     pbData, pdwDataLen);
    case PP_KEYSTORAGE:
      // Keys are kept in files, never in hardware; only CRYPT_SEC_DESCR is reported.
      return SizedOutput::WriteDword(CRYPT_SEC_DESCR, pbData, pdwDataLen);
    case PP_SIG_KEYSIZE_INC:
    case PP_KEYX_KEYSIZE_INC:
      return SizedOutput::WriteDword(kKeySizeIncrement, pbData, pdwDataLen);
    default:
      // Also PP_USE_HARDWARE_RNG (there is no hardware generator) and PP_KEYSET_SEC_DESCR
      // (files carry no Windows security descriptor). Code unconfirmed.
      throw CspError(NTE_BAD_TYPE);
  }
}

void ProviderContext::EnumAlgorithms(bool extended, BYTE* pbData, DWORD* pdwDataLen, DWORD flags) {
  // One cursor for both forms: a caller may mix them and sees each record once.
  if ((flags & CRYPT_FIRST) != 0) m_algCursor = 0;
  const std::span<const AlgRecord> records = m_provider.Algorithms();
  if (m_algCursor >= records.size()) {
    throw CspError(static_cast<uint32_t>(ERROR_NO_MORE_ITEMS));
  }
  const AlgRecord& record = records[m_algCursor];
  if (extended) {
    SizedOutput::Write(ProviderInfo::EnumAlgsExRecord(record), pbData, pdwDataLen);
  } else {
    SizedOutput::Write(ProviderInfo::EnumAlgsRecord(record), pbData, pdwDataLen);
  }
  // A size query does not move the cursor (a failing short buffer threw above).
  if (pbData != nullptr) ++m_algCursor;
}

void ProviderContext::EnumContainers(BYTE* pbData, DWORD* pdwDataLen, DWORD flags) {
  // The machine store when the call or the context asks for it (which of the two Windows
  // honours is not pinned down; either selects it here).
  const StoreScope scope = (flags & CRYPT_MACHINE_KEYSET) != 0 ? StoreScope::Machine : m_scope;
  if ((flags & CRYPT_FIRST) != 0 || !m_containerNames) {
    m_containerNames = Store(scope).List();
    m_containerCursor = 0;
  }
  if (pbData == nullptr) {
    *pdwDataLen = kEnumContainersSize;
    return;
  }
  if (m_containerCursor >= m_containerNames->size()) {
    throw CspError(static_cast<uint32_t>(ERROR_NO_MORE_ITEMS));
  }
  const std::string& name = (*m_containerNames)[m_containerCursor];
  if (*pdwDataLen < name.size() + 1) {
    *pdwDataLen = kEnumContainersSize;
    throw CspError(static_cast<uint32_t>(ERROR_MORE_DATA));
  }
  // *pdwDataLen is left as the caller set it, as Windows does.
  std::memcpy(pbData, name.c_str(), name.size() + 1);
  ++m_containerCursor;
}

}  // namespace quiv::platform
