// The CryptoAPI C entry points. Each function validates its handles and pointers in the order
// Windows' dispatch layer does (a bad handle is ERROR_INVALID_PARAMETER before anything else is
// looked at), then hands the work to the provider's classes. Every body runs inside Guarded(),
// the one place where a CspError becomes SetLastError(code) + FALSE (std::bad_alloc becomes
// NTE_NO_MEMORY, anything else NTE_FAIL), so no exception ever crosses the C boundary.
//
// Handles: three HandleTables (contexts, keys, hashes). Keys and hashes name their context;
// releasing a context frees every key and hash made on it, so their handles then fail like any
// stale handle. The entries a call works on are locked (in one global order) for the call.
#include <algorithm>
#include <functional>
#include <mutex>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/rand.h>

#include "platform/ContainerStore.h"
#include "platform/CspError.h"
#include "platform/HandleTable.h"
#include "platform/HashObject.h"
#include "platform/KeyBlob.h"
#include "platform/KeyObject.h"
#include "platform/Ossl.h"
#include "platform/ProviderContext.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SymmetricKey.h"
#include "platform/ThreadLastError.h"
#include "platform/VersionInfo.h"
#include "platform/wincrypt.h"

namespace quiv::platform {
namespace {

// The hash-handle payload: the hash and the context it was made on.
struct HashEntry {
  HCRYPTPROV owner;
  std::unique_ptr<HashObject> hash;
};

using ContextTable = HandleTable<ProviderContext>;
using KeyTable = HandleTable<KeyObject>;
using HashTable = HandleTable<HashEntry>;

// The tables live until the process is gone: made on first use, never destroyed. A program may
// end with handles open, use them from an atexit handler, or return from main while another
// thread still works on them; on Windows all of that ends cleanly, with the process's memory
// going with it. A table destroyed at exit would free keys and hashes that such code still uses,
// and free OpenSSL objects after the registry that owns their providers (Ossl.cpp), which
// crashes or hangs whenever a table happened to be made before the registry.
ContextTable& Contexts() {
  static ContextTable* const table = new ContextTable(1);
  return *table;
}
KeyTable& Keys() {
  static KeyTable* const table = new KeyTable(2);
  return *table;
}
HashTable& Hashes() {
  static HashTable* const table = new HashTable(3);
  return *table;
}

constexpr uint32_t kInvalidParameter = static_cast<uint32_t>(ERROR_INVALID_PARAMETER);
constexpr DWORD kMaxProviderType = 999;
constexpr DWORD kAcquireFlags = CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET |
                                CRYPT_MACHINE_KEYSET | CRYPT_SILENT;
constexpr DWORD kSignFlags = CRYPT_NOHASHOID | CRYPT_X931_FORMAT;

void Require(bool condition) {
  if (!condition) throw CspError(kInvalidParameter);
}

template <class Body>
BOOL Guarded(Body&& body) {
  try {
    body();
    return TRUE;
  } catch (const CspError& e) {
    ThreadLastError::Set(e.code());
  } catch (const std::bad_alloc&) {
    ThreadLastError::Set(static_cast<uint32_t>(NTE_NO_MEMORY));
  } catch (...) {
    ThreadLastError::Set(static_cast<uint32_t>(NTE_FAIL));
  }
  return FALSE;
}

// Handle lookups: a handle that is not live in its table is ERROR_INVALID_PARAMETER.
ContextTable::Ref FindContext(HCRYPTPROV handle) {
  ContextTable::Ref entry = Contexts().Find(handle);
  Require(entry != nullptr);
  return entry;
}
KeyTable::Ref FindKey(HCRYPTKEY handle) {
  KeyTable::Ref entry = Keys().Find(handle);
  Require(entry != nullptr);
  return entry;
}
HashTable::Ref FindHash(HCRYPTHASH handle) {
  HashTable::Ref entry = Hashes().Find(handle);
  Require(entry != nullptr);
  return entry;
}
// 0 means "no key" where a key is optional.
KeyTable::Ref FindOptionalKey(HCRYPTKEY handle) {
  return handle == 0 ? nullptr : FindKey(handle);
}
HashTable::Ref FindOptionalHash(HCRYPTHASH handle) {
  return handle == 0 ? nullptr : FindHash(handle);
}

// Holds the locks of every entry a call works on. Locks are taken in address order, so two
// calls that share entries never wait on each other in a cycle; an entry named twice (the same
// key as data and exchange key) is locked once.
class CallLocks final {
 public:
  template <class... Refs>
  explicit CallLocks(const Refs&... refs) {
    (Add(refs), ...);
    std::sort(m_mutexes.begin(), m_mutexes.end());
    m_mutexes.erase(std::unique(m_mutexes.begin(), m_mutexes.end()), m_mutexes.end());
    for (std::recursive_mutex* m : m_mutexes) m->lock();
  }
  ~CallLocks() {
    for (auto it = m_mutexes.rbegin(); it != m_mutexes.rend(); ++it) (*it)->unlock();
  }
  CallLocks(const CallLocks&) = delete;
  CallLocks& operator=(const CallLocks&) = delete;

 private:
  template <class Ref>
  void Add(const Ref& ref) {
    if (ref) m_mutexes.push_back(&ref->mutex);
  }
  std::vector<std::recursive_mutex*> m_mutexes;
};

// The context a key or hash was made on; gone (released) means the handle is dead too.
ContextTable::Ref OwnerOf(HCRYPTPROV owner) {
  return FindContext(owner);
}

// New handles are inserted while the owning context is locked and known alive, so a context
// released concurrently never leaves an orphan behind.
HCRYPTKEY AddKey(const ContextTable::Ref& context, std::unique_ptr<KeyObject> key) {
  Require(context->object->alive());
  return Keys().Insert(std::move(key));
}
HCRYPTHASH AddHash(const ContextTable::Ref& context, HCRYPTPROV owner,
                   std::unique_ptr<HashObject> hash) {
  Require(context->object->alive());
  return Hashes().Insert(std::make_unique<HashEntry>(HashEntry{owner, std::move(hash)}));
}

SymmetricKey& RequireSymmetric(const KeyObject& key) {
  SymmetricKey* symmetric = key.symmetric();
  if (symmetric == nullptr) throw CspError(NTE_BAD_KEY);
  return *symmetric;
}
const RsaKey& RequireRsa(const KeyObject& key) {
  const RsaKey* rsa = key.rsa();
  if (rsa == nullptr) throw CspError(NTE_BAD_KEY);
  return *rsa;
}

bool IsKeyPairId(ALG_ID algid) {
  return algid == AT_KEYEXCHANGE || algid == AT_SIGNATURE || algid == CALG_RSA_KEYX ||
         algid == CALG_RSA_SIGN;
}

// ---- text at the boundary: narrow strings are UTF-8, wide ones UTF-16 ----

size_t WideLength(LPCWSTR text) {
  size_t n = 0;
  while (text[n] != 0) ++n;
  return n;
}

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

// UTF-16 to the narrow form. An unpaired surrogate becomes '?', the replacement Windows uses
// when a wide name has no narrow spelling.
std::string Narrow(LPCWSTR text) {
  std::string out;
  if (text == nullptr) return out;
  const std::u16string_view in(text, WideLength(text));
  for (size_t i = 0; i < in.size(); ++i) {
    const char16_t c = in[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 &&
        in[i + 1] <= 0xDFFF) {
      AppendUtf8(out, 0x10000 + ((char32_t(c) - 0xD800) << 10) + (char32_t(in[i + 1]) - 0xDC00));
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      out.push_back('?');
    } else {
      AppendUtf8(out, c);
    }
  }
  return out;
}

// UTF-8 to UTF-16; a byte that does not start a well-formed sequence becomes U+FFFD.
std::u16string Widen(std::string_view in) {
  std::u16string out;
  size_t i = 0;
  while (i < in.size()) {
    const auto b = static_cast<uint8_t>(in[i]);
    const size_t length = b < 0x80         ? 1
                          : (b >> 5) == 6  ? 2
                          : (b >> 4) == 14 ? 3
                          : (b >> 3) == 30 ? 4
                                           : 0;
    char32_t c = length == 1 ? b : length == 2 ? (b & 0x1F) : length == 3 ? (b & 0x0F) : (b & 0x07);
    bool valid = length != 0 && i + length <= in.size();
    for (size_t k = 1; valid && k < length; ++k) {
      const auto t = static_cast<uint8_t>(in[i + k]);
      valid = (t >> 6) == 2;
      c = (c << 6) | (t & 0x3F);
    }
    static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    valid = valid && c >= kMinimum[length] && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
    if (!valid) {
      out.push_back(u'\uFFFD');
      ++i;
      continue;
    }
    if (c >= 0x10000) {
      out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
    i += length;
  }
  return out;
}

// ---- CryptAcquireContext ----

const ProviderInfo& ResolveProvider(std::string_view name, DWORD provType) {
  if (name.empty()) {
    // Only types 1 (PROV_RSA_FULL) and 24 (PROV_RSA_AES) have a default provider here.
    const ProviderInfo* byType = ProviderInfo::DefaultFor(provType);
    if (byType == nullptr) throw CspError(NTE_PROV_TYPE_NOT_DEF);
    return *byType;
  }
  const ProviderInfo* provider = ProviderInfo::FindByName(name);
  if (provider == nullptr) throw CspError(NTE_KEYSET_NOT_DEF);
  if (provType != provider->type()) throw CspError(NTE_PROV_TYPE_NO_MATCH);
  return *provider;
}

// The keyset flags: at most one of NEWKEYSET, DELETEKEYSET, VERIFYCONTEXT, except that
// VERIFYCONTEXT | NEWKEYSET is taken as VERIFYCONTEXT (as other RSA providers do; unconfirmed
// here). CRYPT_VERIFYCONTEXT is four bits wide; any part of it alone is an unknown flag.
void CheckAcquireFlags(DWORD flags, bool named) {
  if ((flags & ~kAcquireFlags) != 0) throw CspError(NTE_BAD_FLAGS);
  const DWORD verifyBits = flags & CRYPT_VERIFYCONTEXT;
  if (verifyBits != 0 && verifyBits != CRYPT_VERIFYCONTEXT) throw CspError(NTE_BAD_FLAGS);
  const bool verify = verifyBits != 0;
  const bool create = (flags & CRYPT_NEWKEYSET) != 0;
  const bool remove = (flags & CRYPT_DELETEKEYSET) != 0;
  if (remove && (create || verify)) throw CspError(NTE_BAD_FLAGS);
  if (verify && named) throw CspError(NTE_BAD_FLAGS);
}

void Acquire(HCRYPTPROV* phProv, std::string_view container, std::string_view providerName,
             DWORD provType, DWORD flags) {
  if (provType == 0 || provType > kMaxProviderType) throw CspError(NTE_BAD_PROV_TYPE);
  Require(phProv != nullptr);
  const ProviderInfo& provider = ResolveProvider(providerName, provType);
  CheckAcquireFlags(flags, !container.empty());
  const StoreScope scope =
      (flags & CRYPT_MACHINE_KEYSET) != 0 ? StoreScope::Machine : StoreScope::User;
  if ((flags & CRYPT_VERIFYCONTEXT) == CRYPT_VERIFYCONTEXT) {
    *phProv = Contexts().Insert(
        std::make_unique<ProviderContext>(provider, provType, scope, std::string(), true));
    return;
  }
  const std::string name =
      container.empty() ? ContainerStore::DefaultContainerName() : std::string(container);
  ContainerStore store(scope);
  if ((flags & CRYPT_DELETEKEYSET) != 0) {
    store.Delete(name);
    *phProv = 0;  // a deleted key set leaves no context to release
    return;
  }
  // The context reports the name as the container keeps it (the spelling used at creation).
  std::string stored =
      (flags & CRYPT_NEWKEYSET) != 0 ? store.Create(name) : store.Open(name).name();
  *phProv = Contexts().Insert(
      std::make_unique<ProviderContext>(provider, provType, scope, std::move(stored), false));
}

void SignHash(HCRYPTHASH hHash, DWORD dwKeySpec, const char16_t* description, DWORD dwFlags,
              BYTE* pbSignature, DWORD* pdwSigLen) {
  const HashTable::Ref hash = FindHash(hHash);
  const ContextTable::Ref context = OwnerOf(hash->object->owner);
  Require(pdwSigLen != nullptr);
  if ((dwFlags & ~kSignFlags) != 0) throw CspError(NTE_BAD_FLAGS);
  const CallLocks locks(context, hash);
  const RsaKey& pair = context->object->Pair(dwKeySpec);
  pair.Sign(*hash->object->hash, description, dwFlags, pbSignature, pdwSigLen);
}

void VerifySignature(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen, HCRYPTKEY hPubKey,
                     const char16_t* description, DWORD dwFlags) {
  const HashTable::Ref hash = FindHash(hHash);
  const KeyTable::Ref key = FindKey(hPubKey);
  const CallLocks locks(hash, key);
  RequireRsa(*key->object).Verify(*hash->object->hash, pbSignature, dwSigLen, description, dwFlags);
}

std::string_view NarrowView(LPCSTR text) {
  return text == nullptr ? std::string_view() : std::string_view(text);
}

}  // namespace
}  // namespace quiv::platform

using namespace quiv::platform;

extern "C" {

BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                          DWORD dwProvType, DWORD dwFlags) {
  return Guarded([&] {
    Acquire(phProv, NarrowView(szContainer), NarrowView(szProvider), dwProvType, dwFlags);
  });
}

BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                          DWORD dwProvType, DWORD dwFlags) {
  return Guarded([&] {
    // The provider sees the container name in its narrow form, as on Windows.
    const std::string container = Narrow(szContainer);
    const std::string provider = Narrow(szProvider);
    Acquire(phProv, container, provider, dwProvType, dwFlags);
  });
}

BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
  return Guarded([&] {
    const ContextTable::Ref context = Contexts().Remove(hProv);
    Require(context != nullptr);
    {
      const CallLocks locks(context);
      context->object->Kill();
      Keys().RemoveIf([&](const KeyObject& key) { return key.owner() == hProv; });
      Hashes().RemoveIf([&](const HashEntry& hash) { return hash.owner == hProv; });
    }
    // Windows releases the context even when the flags are refused.
    if (dwFlags != 0) throw CspError(NTE_BAD_FLAGS);
  });
}

BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                       DWORD dwFlags) {
  return Guarded([&] {
    const ContextTable::Ref context = FindContext(hProv);
    const CallLocks locks(context);
    context->object->GetParam(dwParam, pbData, pdwDataLen, dwFlags);
  });
}

BOOL CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) {
  return Guarded([&] {
    FindContext(hProv);
    if (dwLen == 0) return;
    Require(pbBuffer != nullptr);
    Ossl::Check(RAND_bytes_ex(Ossl::LibContext(), pbBuffer, dwLen, 0), NTE_FAIL);
  });
}

BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
  return Guarded([&] {
    const ContextTable::Ref context = FindContext(hProv);
    Require(phUserKey != nullptr);
    const CallLocks locks(context);
    // Each call hands out a new key object; destroying it leaves the stored pair alone.
    std::unique_ptr<RsaKey> pair = context->object->Pair(dwKeySpec).Clone();
    *phUserKey = AddKey(context, std::make_unique<KeyObject>(hProv, std::move(pair)));
  });
}

BOOL CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) {
  return Guarded([&] {
    const ContextTable::Ref context = FindContext(hProv);
    Require(phKey != nullptr);
    const CallLocks locks(context);
    ProviderContext& ctx = *context->object;
    std::unique_ptr<KeyObject> key;
    if (IsKeyPairId(Algid)) {
      std::unique_ptr<RsaKey> pair = RsaKey::Generate(ctx.provider(), Algid, dwFlags);
      ctx.KeepPair(*pair);
      key = std::make_unique<KeyObject>(hProv, std::move(pair));
    } else {
      key = std::make_unique<KeyObject>(hProv,
                                        SymmetricKey::Generate(ctx.provider(), Algid, dwFlags));
    }
    *phKey = AddKey(context, std::move(key));
  });
}

BOOL CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                    HCRYPTKEY* phKey) {
  return Guarded([&] {
    const ContextTable::Ref context = FindContext(hProv);
    const HashTable::Ref hash = FindHash(hBaseData);
    Require(phKey != nullptr);
    const CallLocks locks(context, hash);
    std::unique_ptr<SymmetricKey> key =
        SymmetricKey::Derive(context->object->provider(), Algid, *hash->object->hash, dwFlags);
    *phKey = AddKey(context, std::make_unique<KeyObject>(hProv, std::move(key)));
  });
}

BOOL CryptDestroyKey(HCRYPTKEY hKey) {
  return Guarded([&] {
    KeyTable::Ref key = Keys().Remove(hKey);
    Require(key != nullptr);
    // Wait for a call still working on the key, then let the last reference wipe it.
    const CallLocks locks(key);
  });
}

BOOL CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags, HCRYPTKEY* phKey) {
  return Guarded([&] {
    const KeyTable::Ref key = FindKey(hKey);
    Require(pdwReserved == nullptr && dwFlags == 0 && phKey != nullptr);
    const HCRYPTPROV owner = key->object->owner();
    const ContextTable::Ref context = OwnerOf(owner);
    const CallLocks locks(context, key);
    *phKey = AddKey(context, key->object->Clone());
  });
}

BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                      DWORD dwFlags) {
  return Guarded([&] {
    const KeyTable::Ref key = FindKey(hKey);
    const CallLocks locks(key);
    if (SymmetricKey* symmetric = key->object->symmetric()) {
      symmetric->GetParam(dwParam, pbData, pdwDataLen, dwFlags);
    } else {
      key->object->rsa()->GetParam(dwParam, pbData, pdwDataLen, dwFlags);
    }
  });
}

BOOL CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  return Guarded([&] {
    const KeyTable::Ref key = FindKey(hKey);
    Require(pbData != nullptr);
    const CallLocks locks(key);
    if (SymmetricKey* symmetric = key->object->symmetric()) {
      symmetric->SetParam(dwParam, pbData, dwFlags);
    } else {
      key->object->rsa()->SetParam(dwParam, pbData, dwFlags);
    }
  });
}

BOOL CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType, DWORD dwFlags,
                    BYTE* pbData, DWORD* pdwDataLen) {
  return Guarded([&] {
    const KeyTable::Ref key = FindKey(hKey);
    const KeyTable::Ref expKey = FindOptionalKey(hExpKey);
    Require(pdwDataLen != nullptr);
    const CallLocks locks(key, expKey);
    const KeyRef exp = expKey ? expKey->object->ref() : KeyRef{};
    KeyBlob::Export(key->object->ref(), exp, dwBlobType, dwFlags, pbData, pdwDataLen);
  });
}

BOOL CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
                    DWORD dwFlags, HCRYPTKEY* phKey) {
  return Guarded([&] {
    const ContextTable::Ref context = FindContext(hProv);
    Require(pbData != nullptr && dwDataLen != 0 && phKey != nullptr);
    const KeyTable::Ref pubKey = FindOptionalKey(hPubKey);
    const CallLocks locks(context, pubKey);
    ProviderContext& ctx = *context->object;
    const KeyRef unwrap = pubKey ? pubKey->object->ref() : KeyRef{};
    ImportedKey imported =
        KeyBlob::Import(ctx.provider(), std::span(pbData, dwDataLen), unwrap, dwFlags);
    std::unique_ptr<KeyObject> key;
    if (imported.rsa) {
      // A private blob fills the container slot its algorithm names; a public key is never
      // stored.
      if (imported.rsa->HasPrivate()) ctx.KeepPair(*imported.rsa);
      key = std::make_unique<KeyObject>(hProv, std::move(imported.rsa));
    } else if (imported.symmetric) {
      key = std::make_unique<KeyObject>(hProv, std::move(imported.symmetric));
    } else {
      throw CspError(NTE_FAIL);
    }
    *phKey = AddKey(context, std::move(key));
  });
}

BOOL CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                  DWORD* pdwDataLen, DWORD dwBufLen) {
  return Guarded([&] {
    const KeyTable::Ref key = FindKey(hKey);
    const HashTable::Ref hash = FindOptionalHash(hHash);
    Require(pdwDataLen != nullptr);
    const CallLocks locks(key, hash);
    HashObject* const hashObject = hash ? hash->object->hash.get() : nullptr;
    if (SymmetricKey* symmetric = key->object->symmetric()) {
      symmetric->Encrypt(hashObject, Final != FALSE, dwFlags, pbData, pdwDataLen, dwBufLen);
    } else {
      key->object->rsa()->Encrypt(hashObject, Final != FALSE, dwFlags, pbData, pdwDataLen,
                                  dwBufLen);
    }
  });
}

BOOL CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                  DWORD* pdwDataLen) {
  return Guarded([&] {
    const KeyTable::Ref key = FindKey(hKey);
    const HashTable::Ref hash = FindOptionalHash(hHash);
    Require(pbData != nullptr && pdwDataLen != nullptr);
    const CallLocks locks(key, hash);
    HashObject* const hashObject = hash ? hash->object->hash.get() : nullptr;
    if (SymmetricKey* symmetric = key->object->symmetric()) {
      symmetric->Decrypt(hashObject, Final != FALSE, dwFlags, pbData, pdwDataLen);
    } else {
      key->object->rsa()->Decrypt(hashObject, Final != FALSE, dwFlags, pbData, pdwDataLen);
    }
  });
}

BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                     HCRYPTHASH* phHash) {
  return Guarded([&] {
    const ContextTable::Ref context = FindContext(hProv);
    const KeyTable::Ref key = FindOptionalKey(hKey);
    Require(phHash != nullptr);
    const CallLocks locks(context, key);
    // An RSA key cannot key a MAC or an HMAC; the hash object reports the missing key.
    const SymmetricKey* symmetric = key ? key->object->symmetric() : nullptr;
    std::unique_ptr<HashObject> hash =
        HashObject::Create(context->object->provider(), Algid, symmetric, dwFlags);
    *phHash = AddHash(context, hProv, std::move(hash));
  });
}

BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) {
  return Guarded([&] {
    const HashTable::Ref hash = FindHash(hHash);
    Require(pbData != nullptr || dwDataLen == 0);
    const CallLocks locks(hash);
    const std::span<const uint8_t> data =
        dwDataLen == 0 ? std::span<const uint8_t>() : std::span(pbData, dwDataLen);
    hash->object->hash->HashData(data, dwFlags);
  });
}

BOOL CryptHashSessionKey(HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) {
  return Guarded([&] {
    const HashTable::Ref hash = FindHash(hHash);
    const KeyTable::Ref key = FindKey(hKey);
    const CallLocks locks(hash, key);
    hash->object->hash->HashSessionKey(RequireSymmetric(*key->object), dwFlags);
  });
}

BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                       DWORD dwFlags) {
  return Guarded([&] {
    const HashTable::Ref hash = FindHash(hHash);
    const CallLocks locks(hash);
    hash->object->hash->GetParam(dwParam, pbData, pdwDataLen, dwFlags);
  });
}

BOOL CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) {
  return Guarded([&] {
    const HashTable::Ref hash = FindHash(hHash);
    Require(pbData != nullptr);
    const CallLocks locks(hash);
    hash->object->hash->SetParam(dwParam, pbData, dwFlags);
  });
}

BOOL CryptDestroyHash(HCRYPTHASH hHash) {
  return Guarded([&] {
    HashTable::Ref hash = Hashes().Remove(hHash);
    Require(hash != nullptr);
    const CallLocks locks(hash);
  });
}

BOOL CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags, HCRYPTHASH* phHash) {
  return Guarded([&] {
    const HashTable::Ref hash = FindHash(hHash);
    Require(pdwReserved == nullptr && dwFlags == 0 && phHash != nullptr);
    const HCRYPTPROV owner = hash->object->owner;
    const ContextTable::Ref context = OwnerOf(owner);
    const CallLocks locks(context, hash);
    *phHash = AddHash(context, owner, hash->object->hash->Clone());
  });
}

BOOL CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR sDescription, DWORD dwFlags,
                    BYTE* pbSignature, DWORD* pdwSigLen) {
  return Guarded([&] {
    // The narrow description is hashed in its wide form, as Windows converts it first.
    const std::u16string wide = sDescription ? Widen(sDescription) : std::u16string();
    SignHash(hHash, dwKeySpec, sDescription ? wide.c_str() : nullptr, dwFlags, pbSignature,
             pdwSigLen);
  });
}

BOOL CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR sDescription, DWORD dwFlags,
                    BYTE* pbSignature, DWORD* pdwSigLen) {
  return Guarded(
      [&] { SignHash(hHash, dwKeySpec, sDescription, dwFlags, pbSignature, pdwSigLen); });
}

BOOL CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                           HCRYPTKEY hPubKey, LPCSTR sDescription, DWORD dwFlags) {
  return Guarded([&] {
    const std::u16string wide = sDescription ? Widen(sDescription) : std::u16string();
    VerifySignature(hHash, pbSignature, dwSigLen, hPubKey, sDescription ? wide.c_str() : nullptr,
                    dwFlags);
  });
}

BOOL CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                           HCRYPTKEY hPubKey, LPCWSTR sDescription, DWORD dwFlags) {
  return Guarded(
      [&] { VerifySignature(hHash, pbSignature, dwSigLen, hPubKey, sDescription, dwFlags); });
}

DWORD GetLastError(void) {
  return ThreadLastError::Get();
}

void SetLastError(DWORD dwErrCode) {
  ThreadLastError::Set(dwErrCode);
}

BOOL GetVersionExA(OSVERSIONINFOA* lpVersionInformation) {
  if (VersionInfo::Fill(lpVersionInformation)) return TRUE;
  ThreadLastError::Set(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
  return FALSE;
}

}  // extern "C"
