// A small program that ends with every kind of provider handle still open, run as a child
// process by ExitCleanupTest. It uses only the C functions of wincrypt.h, as an outside program
// would, and must end with status 0 and print nothing: a crash, a hang or a sanitizer report at
// exit is what the test looks for.
//
//   exit_child <provider> <early> <ending>
//     provider  base | enhanced | strong
//     early     none | zero (calls on zero handles first) | verify (a verify context acquired
//               and released before any key exists)
//     ending    return | exit | thread-exit (another thread calls exit() while this one works)
//               | thread-running (main returns while another thread still works)
//               | atexit (a handler registered first uses the handles at exit)
//
// Named containers go to the store named by QUIV_KEY_STORE, which the parent points at a
// temporary folder.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/wincrypt.h"

namespace {

// Everything the program leaves open, so that the ending can still use it.
struct OpenHandles {
  std::vector<HCRYPTPROV> contexts;
  std::vector<HCRYPTKEY> blockKeys;  // symmetric keys mid-message (Final=FALSE)
  std::vector<HCRYPTKEY> keys;       // every key, symmetric and RSA
  std::vector<HCRYPTHASH> hashes;
  HCRYPTPROV signer = 0;  // a context holding a signature pair
  HCRYPTKEY exchange = 0;
};
// Never destroyed, so that threads and handlers still working during exit find it intact.
OpenHandles& g_open = *new OpenHandles();
std::atomic<long> g_work{0};

[[noreturn]] void Die(const char* what) {
  std::fprintf(stderr, "exit_child: %s failed (0x%08x)\n", what, GetLastError());
  _exit(3);
}
void Check(BOOL ok, const char* what) {
  if (!ok) Die(what);
}

const char* ProviderName(const std::string& which) {
  if (which == "base") return MS_DEF_PROV_A;
  if (which == "enhanced") return MS_ENHANCED_PROV_A;
  return MS_STRONG_PROV_A;
}

// The provider's algorithms, as PP_ENUMALGS lists them.
std::vector<ALG_ID> Algorithms(HCRYPTPROV prov) {
  std::vector<ALG_ID> out;
  PROV_ENUMALGS record{};
  DWORD flags = CRYPT_FIRST;
  for (;;) {
    DWORD length = sizeof record;
    if (!CryptGetProvParam(prov, PP_ENUMALGS, reinterpret_cast<BYTE*>(&record), &length, flags)) {
      break;
    }
    out.push_back(record.aiAlgid);
    flags = CRYPT_NEXT;
  }
  return out;
}

void HashSome(HCRYPTHASH hash) {
  static const BYTE kData[] = "open at exit";
  Check(CryptHashData(hash, kData, sizeof kData - 1, 0), "CryptHashData");
}

// A block or stream key left in the middle of a message: its cipher context is live.
HCRYPTKEY OpenCipherKey(HCRYPTPROV prov, ALG_ID algid) {
  HCRYPTKEY key = 0;
  Check(CryptGenKey(prov, algid, CRYPT_EXPORTABLE, &key), "CryptGenKey");
  BYTE data[32] = {1, 2, 3};
  DWORD length = 16;
  Check(CryptEncrypt(key, 0, FALSE, 0, data, &length, sizeof data), "CryptEncrypt");
  g_open.blockKeys.push_back(key);
  g_open.keys.push_back(key);
  return key;
}

// A MAC on every block cipher key (one finished, one running), and an HMAC of every inner hash.
void OpenKeyedHashes(HCRYPTPROV prov, const std::vector<ALG_ID>& algs,
                     const std::vector<HCRYPTKEY>& macKeys, HCRYPTKEY blockKey) {
  for (HCRYPTKEY macKey : macKeys) {
    HCRYPTHASH mac = 0, running = 0;
    Check(CryptCreateHash(prov, CALG_MAC, macKey, 0, &mac), "CryptCreateHash(MAC)");
    HashSome(mac);
    Check(CryptDuplicateHash(mac, nullptr, 0, &running), "CryptDuplicateHash(MAC)");
    BYTE value[64];
    DWORD length = sizeof value;
    Check(CryptGetHashParam(mac, HP_HASHVAL, value, &length, 0), "CryptGetHashParam(MAC)");
    g_open.hashes.insert(g_open.hashes.end(), {mac, running});
  }
  for (ALG_ID inner : algs) {
    if (GET_ALG_CLASS(inner) != ALG_CLASS_HASH || inner == CALG_MAC || inner == CALG_HMAC ||
        inner == CALG_SSL3_SHAMD5) {
      continue;
    }
    HCRYPTHASH hmac = 0;
    Check(CryptCreateHash(prov, CALG_HMAC, blockKey, 0, &hmac), "CryptCreateHash(HMAC)");
    HMAC_INFO info{};
    info.HashAlgid = inner;
    Check(CryptSetHashParam(hmac, HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0),
          "CryptSetHashParam(HP_HMAC_INFO)");
    HashSome(hmac);
    g_open.hashes.push_back(hmac);
  }
}

void OpenPlainHashes(HCRYPTPROV prov, const std::vector<ALG_ID>& algs) {
  for (ALG_ID algid : algs) {
    if (GET_ALG_CLASS(algid) != ALG_CLASS_HASH || algid == CALG_MAC || algid == CALG_HMAC) {
      continue;
    }
    HCRYPTHASH hash = 0;
    Check(CryptCreateHash(prov, algid, 0, 0, &hash), "CryptCreateHash");
    if (algid == CALG_SSL3_SHAMD5) {
      BYTE value[36] = {7};
      Check(CryptSetHashParam(hash, HP_HASHVAL, value, 0), "CryptSetHashParam(HP_HASHVAL)");
    } else {
      HashSome(hash);
      HCRYPTHASH copy = 0;  // a duplicate, and one finished hash per algorithm
      Check(CryptDuplicateHash(hash, nullptr, 0, &copy), "CryptDuplicateHash");
      BYTE value[64];
      DWORD length = sizeof value;
      Check(CryptGetHashParam(copy, HP_HASHVAL, value, &length, 0), "CryptGetHashParam");
      g_open.hashes.push_back(copy);
    }
    g_open.hashes.push_back(hash);
  }
}

// RSA pairs (small, to keep the run short), the stored pair through CryptGetUserKey, a public
// key imported from a blob, a derived key and a duplicate.
void OpenOtherKeys(HCRYPTPROV prov) {
  constexpr DWORD kSmall = (512u << 16) | CRYPT_EXPORTABLE;
  HCRYPTKEY exchange = 0, signature = 0, user = 0, pub = 0, derived = 0, copy = 0;
  Check(CryptGenKey(prov, AT_KEYEXCHANGE, kSmall, &exchange), "CryptGenKey(AT_KEYEXCHANGE)");
  Check(CryptGenKey(prov, AT_SIGNATURE, kSmall, &signature), "CryptGenKey(AT_SIGNATURE)");
  Check(CryptGetUserKey(prov, AT_SIGNATURE, &user), "CryptGetUserKey");
  BYTE blob[2048];
  DWORD length = sizeof blob;
  Check(CryptExportKey(exchange, 0, PUBLICKEYBLOB, 0, blob, &length), "CryptExportKey");
  Check(CryptImportKey(prov, blob, length, 0, 0, &pub), "CryptImportKey");
  HCRYPTHASH base = 0;
  Check(CryptCreateHash(prov, CALG_MD5, 0, 0, &base), "CryptCreateHash(MD5)");
  HashSome(base);
  Check(CryptDeriveKey(prov, CALG_RC4, base, 0, &derived), "CryptDeriveKey");
  Check(CryptDuplicateKey(derived, nullptr, 0, &copy), "CryptDuplicateKey");
  g_open.hashes.push_back(base);
  g_open.keys.insert(g_open.keys.end(), {exchange, signature, user, pub, derived, copy});
  g_open.signer = prov;
  g_open.exchange = exchange;
}

// Keys that come from blobs: a session key unwrapped from a SIMPLEBLOB, a plaintext blob, and
// an exchange pair re-imported from its private blob; a hash of a session key.
void OpenImportedKeys(HCRYPTPROV prov) {
  HCRYPTKEY session = 0, unwrapped = 0, plain = 0, pair = 0;
  Check(CryptGenKey(prov, CALG_RC4, CRYPT_EXPORTABLE, &session), "CryptGenKey(RC4)");
  BYTE blob[2048];
  DWORD length = sizeof blob;
  Check(CryptExportKey(session, g_open.exchange, SIMPLEBLOB, 0, blob, &length), "SIMPLEBLOB");
  Check(CryptImportKey(prov, blob, length, g_open.exchange, 0, &unwrapped), "import SIMPLEBLOB");
  length = sizeof blob;
  Check(CryptExportKey(session, 0, PLAINTEXTKEYBLOB, 0, blob, &length), "PLAINTEXTKEYBLOB");
  Check(CryptImportKey(prov, blob, length, 0, 0, &plain), "import PLAINTEXTKEYBLOB");
  length = sizeof blob;
  Check(CryptExportKey(g_open.exchange, 0, PRIVATEKEYBLOB, 0, blob, &length), "PRIVATEKEYBLOB");
  Check(CryptImportKey(prov, blob, length, 0, CRYPT_EXPORTABLE, &pair), "import PRIVATEKEYBLOB");
  HCRYPTHASH keyHash = 0;
  Check(CryptCreateHash(prov, CALG_SHA1, 0, 0, &keyHash), "CryptCreateHash(SHA1)");
  Check(CryptHashSessionKey(keyHash, session, 0), "CryptHashSessionKey");
  g_open.keys.insert(g_open.keys.end(), {session, unwrapped, plain, pair});
  g_open.hashes.push_back(keyHash);
}

void OpenEverything(HCRYPTPROV prov) {
  const std::vector<ALG_ID> algs = Algorithms(prov);
  HCRYPTKEY blockKey = 0;
  std::vector<HCRYPTKEY> macKeys;
  for (ALG_ID algid : algs) {
    if (GET_ALG_CLASS(algid) != ALG_CLASS_DATA_ENCRYPT) continue;
    const HCRYPTKEY key = OpenCipherKey(prov, algid);
    if (algid == CALG_RC2) blockKey = key;
    if (algid != CALG_RC4) macKeys.push_back(OpenCipherKey(prov, algid));
  }
  OpenPlainHashes(prov, algs);
  OpenKeyedHashes(prov, algs, macKeys, blockKey);
  OpenOtherKeys(prov);
  OpenImportedKeys(prov);
}

// One round of work on the open handles, as a program still busy at exit does it.
void UseHandles() {
  BYTE data[64] = {9};
  for (HCRYPTKEY key : g_open.blockKeys) {
    DWORD length = 16;
    Check(CryptEncrypt(key, 0, FALSE, 0, data, &length, sizeof data), "CryptEncrypt (busy)");
  }
  for (HCRYPTHASH hash : g_open.hashes) {
    HCRYPTHASH copy = 0;
    Check(CryptDuplicateHash(hash, nullptr, 0, &copy), "CryptDuplicateHash (busy)");
    Check(CryptDestroyHash(copy), "CryptDestroyHash (busy)");
  }
  HCRYPTHASH hash = 0;
  Check(CryptCreateHash(g_open.signer, CALG_SHA1, 0, 0, &hash), "CryptCreateHash (busy)");
  HashSome(hash);
  BYTE signature[256];
  DWORD length = sizeof signature;
  Check(CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, signature, &length), "CryptSignHash");
  Check(CryptDestroyHash(hash), "CryptDestroyHash (busy)");
  length = 8;
  Check(CryptEncrypt(g_open.exchange, 0, TRUE, 0, data, &length, sizeof data), "RSA encrypt");
  Check(CryptGenRandom(g_open.signer, sizeof data, data), "CryptGenRandom");
  for (HCRYPTPROV prov : g_open.contexts) {
    char name[300];
    DWORD nameLength = sizeof name;
    Check(
        CryptGetProvParam(prov, PP_UNIQUE_CONTAINER, reinterpret_cast<BYTE*>(name), &nameLength, 0),
        "PP_UNIQUE_CONTAINER");
  }
  g_work.fetch_add(1);
}

void UseHandlesForever() {
  for (;;) UseHandles();
}

void WaitForWork(long rounds) {
  while (g_work.load() < rounds) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void EarlyCalls(const std::string& early) {
  if (early == "zero") {
    // Each fails with ERROR_INVALID_PARAMETER; what matters is that they come first.
    CryptDestroyHash(0);
    CryptDestroyKey(0);
    CryptReleaseContext(0, 0);
  } else if (early == "verify") {
    HCRYPTPROV prov = 0;
    Check(CryptAcquireContextA(&prov, nullptr, MS_DEF_PROV_A, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
          "CryptAcquireContext (early)");
    Check(CryptReleaseContext(prov, 0), "CryptReleaseContext (early)");
  }
}

void OpenContexts(const char* provider) {
  HCRYPTPROV verify = 0;
  Check(CryptAcquireContextA(&verify, nullptr, provider, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
        "CryptAcquireContext(verify)");
  const std::string container = "exit-child-" + std::to_string(::getpid());
  HCRYPTPROV named = 0;
  Check(CryptAcquireContextA(&named, container.c_str(), provider, PROV_RSA_FULL, CRYPT_NEWKEYSET),
        "CryptAcquireContext(named)");
  g_open.contexts = {verify, named};
  OpenEverything(verify);
  OpenEverything(named);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr,
                 "usage: %s base|enhanced|strong none|zero|verify "
                 "return|exit|thread-exit|thread-running|atexit\n",
                 argv[0]);
    return 2;
  }
  const std::string ending = argv[3];
  // Registered before the library is first used, so it runs after the library's own exit work.
  if (ending == "atexit") std::atexit(UseHandles);
  EarlyCalls(argv[2]);
  OpenContexts(ProviderName(argv[1]));
  UseHandles();

  if (ending == "exit") std::exit(0);
  if (ending == "thread-exit") {
    std::thread([] {
      WaitForWork(3);
      std::exit(0);
    }).detach();
    UseHandlesForever();
  }
  if (ending == "thread-running") {
    std::thread(UseHandlesForever).detach();
    WaitForWork(3);
  }
  return 0;
}
