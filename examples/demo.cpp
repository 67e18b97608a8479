// The demo: what the library does today, with real output.
//
// 1. The provider through its C functions: derive a key from a pass phrase, encrypt and decrypt,
//    hash, sign and verify with a key pair kept in a key container, list the containers.
// 2. A provider session through the library's objects (ProviderSessionDemo.cpp), then session
//    keys and the typical request between two parties (TypicalRequestDemo.cpp).
// 3. The catalogues every class reads: constants, library error texts, platform error names.
// 4. A late-bound session through the C entry points and IDispatch (LateBoundDemo.cpp).
//
// Key containers go to the user's store, or to $QUIV_KEY_STORE when that is set. The demo
// creates one container, "QUIV demo", and deletes it again at the end.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "DemoParts.h"
#include "platform/wincrypt.h"
// After any platform header: the catalogue's getters share their names with the C macros.
#include "constants/CConstQUIV.h"
#include "errors/CErrAPI.h"
#include "errors/CErrHandler.h"
#include "errors/CErrQUIV.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"

namespace {

std::string Hex(const BYTE* data, DWORD len) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (DWORD i = 0; i < len; ++i) {
    out += kDigits[data[i] >> 4];
    out += kDigits[data[i] & 15];
  }
  return out;
}

// Prints the platform's name of the thread's last error, as the error record would show it.
void Explain(const char* what) {
  const double code = static_cast<int32_t>(GetLastError());
  std::printf("  %s failed: %s\n", what, quiv::CErrAPI().LastError(code).Trim().ToUtf8().c_str());
}

bool Check(BOOL ok, const char* what) {
  if (!ok) Explain(what);
  return ok != 0;
}

void ShowProviderAtWork() {
  const quiv::CConstQUIV c;
  const std::string provider = c.MS_ENHANCED_PROV().ToUtf8();
  const char* container = "QUIV demo";
  std::printf("Provider: %s\n", provider.c_str());

  HCRYPTPROV prov = 0;
  // Open the demo container, or create it the first time.
  if (!CryptAcquireContextA(&prov, container, provider.c_str(), c.PROV_RSA_FULL(), 0) &&
      !Check(CryptAcquireContextA(&prov, container, provider.c_str(), c.PROV_RSA_FULL(),
                                  c.CRYPT_NEWKEYSET()),
             "CryptAcquireContext")) {
    return;
  }

  // A 3DES key derived from a pass phrase: MD5 of the phrase, then CryptDeriveKey.
  const char phrase[] = "correct horse battery staple";
  HCRYPTHASH hash = 0;
  HCRYPTKEY key = 0;
  Check(CryptCreateHash(prov, c.CALG_MD5(), 0, 0, &hash), "CryptCreateHash");
  Check(CryptHashData(hash, reinterpret_cast<const BYTE*>(phrase), sizeof phrase - 1, 0),
        "CryptHashData");
  Check(CryptDeriveKey(prov, c.CALG_3DES(), hash, c.CRYPT_EXPORTABLE(), &key), "CryptDeriveKey");
  CryptDestroyHash(hash);
  std::printf("Pass phrase: \"%s\" -> 3DES key (MD5 derivation)\n", phrase);

  const char message[] = "Attack at dawn.";
  std::vector<BYTE> buf(64);
  std::memcpy(buf.data(), message, sizeof message - 1);
  DWORD len = sizeof message - 1;
  if (Check(CryptEncrypt(key, 0, TRUE, 0, buf.data(), &len, static_cast<DWORD>(buf.size())),
            "CryptEncrypt")) {
    std::printf("Encrypted \"%s\" (CBC, PKCS#5): %s\n", message, Hex(buf.data(), len).c_str());
  }
  if (Check(CryptDecrypt(key, 0, TRUE, 0, buf.data(), &len), "CryptDecrypt")) {
    std::printf("Decrypted: \"%.*s\"\n", static_cast<int>(len), buf.data());
  }
  CryptDestroyKey(key);

  // SHA-1 of the message, signed with the container's signature pair.
  HCRYPTKEY pair = 0;
  Check(CryptGenKey(prov, c.AT_SIGNATURE(), (1024u << 16), &pair), "CryptGenKey");
  Check(CryptCreateHash(prov, c.CALG_SHA1(), 0, 0, &hash), "CryptCreateHash");
  Check(CryptHashData(hash, reinterpret_cast<const BYTE*>(message), sizeof message - 1, 0),
        "CryptHashData");
  BYTE digest[20];
  DWORD digestLen = sizeof digest;
  Check(CryptGetHashParam(hash, c.HP_HASHVAL(), digest, &digestLen, 0), "CryptGetHashParam");
  std::printf("SHA-1: %s\n", Hex(digest, digestLen).c_str());
  DWORD sigLen = 0;
  Check(CryptSignHashW(hash, c.AT_SIGNATURE(), nullptr, 0, nullptr, &sigLen), "CryptSignHash");
  std::vector<BYTE> sig(sigLen);
  if (Check(CryptSignHashW(hash, c.AT_SIGNATURE(), nullptr, 0, sig.data(), &sigLen),
            "CryptSignHash")) {
    std::printf("Signature (%u bytes, little-endian): %s...\n", sigLen,
                Hex(sig.data(), 16).c_str());
  }
  CryptDestroyHash(hash);

  // Verify: once the message as signed, once with one byte changed.
  for (const bool tamper : {false, true}) {
    std::string text = message;
    if (tamper) text[0] = 'a';
    Check(CryptCreateHash(prov, c.CALG_SHA1(), 0, 0, &hash), "CryptCreateHash");
    CryptHashData(hash, reinterpret_cast<const BYTE*>(text.data()), static_cast<DWORD>(text.size()),
                  0);
    const BOOL valid = CryptVerifySignatureW(hash, sig.data(), sigLen, pair, nullptr, 0);
    std::printf("Verify \"%s\": %s\n", text.c_str(), valid ? "valid" : "INVALID");
    if (!valid) Explain("CryptVerifySignature");
    CryptDestroyHash(hash);
  }
  CryptDestroyKey(pair);

  // The containers of the user store.
  std::printf("Containers:\n");
  std::vector<BYTE> name(1024);
  DWORD flags = c.CRYPT_FIRST();
  for (;;) {
    DWORD nameLen = static_cast<DWORD>(name.size());
    if (!CryptGetProvParam(prov, c.PP_ENUMCONTAINERS(), name.data(), &nameLen, flags)) break;
    std::printf("  %s\n", reinterpret_cast<const char*>(name.data()));
    flags = 0;
  }
  CryptReleaseContext(prov, 0);
  CryptAcquireContextA(&prov, container, provider.c_str(), c.PROV_RSA_FULL(),
                       c.CRYPT_DELETEKEYSET());
  std::printf("Deleted the container \"%s\".\n", container);

  // A failure: opening the container that was just deleted.
  if (!CryptAcquireContextA(&prov, container, provider.c_str(), c.PROV_RSA_FULL(), 0)) {
    Explain("Opening the deleted container");
  }
}

void ShowCatalogues() {
  const quiv::CConstQUIV c;
  std::printf("\nConstants: %zu properties, e.g. CALG_RC4 = %d, CRYPT_SUCCEED = %d\n",
              quiv::CConstQUIV::kPropertyCount, c.CALG_RC4(), c.CRYPT_SUCCEED());
  const int32_t code = quiv::DATA_FORMAT_ERROR_INVALID_HEX_VALUE;
  std::printf("Library error %d: %s\n", code, quiv::CErrQUIV().LastError(code).ToUtf8().c_str());
  for (const double platformCode : {87.0, 234.0, -2146893811.0, 6119.0}) {
    std::printf("Platform error %.0f: %s\n", platformCode,
                quiv::CErrAPI().LastError(platformCode).ToUtf8().c_str());
  }
}

// How a library method reports a failure: its trap fills the object's LastError record, whose
// default member gives the assembled message. Here a hex digit check in the style of the data
// converter rejects "0G".
void ShowErrorRecord() {
  quiv::Ref<quiv::CErrHandler> lastError;
  // The record carries the thread's last platform error, which the demo's last platform call
  // (the failed open above) left set; a routine that made no platform call starts clean.
  SetLastError(0);
  const quiv::String hex = u"0G";
  const bool ok = quiv::Trap(
      lastError, u"QUIV.CConvert.DeHex",
      [&] {
        for (const char16_t ch : hex.u16()) {
          if (quiv::String(u"0123456789ABCDEF").InStr(quiv::String(std::u16string(1, ch))) == 0) {
            quiv::RaiseQuiv(quiv::DATA_FORMAT_ERROR_INVALID_HEX_VALUE);
          }
        }
      },
      [&](quiv::CErrHandler& e) { e.AddParam(quiv::String(u"i_sHex"), hex); });
  std::printf("\nA failing call returns %s; its error record says:\n  \"%s\"\n",
              ok ? "True" : "False", lastError->LastError().ToUtf8().c_str());
  std::printf("  ErrNumber %d, ClassName %s, RoutineName %s\n", lastError->m_lErrNumber,
              lastError->m_sClassName.ToUtf8().c_str(), lastError->m_sRoutineName.ToUtf8().c_str());
}

}  // namespace

int main() {
  std::printf("QUIV demo\n=========\n");
  ShowProviderAtWork();
  quiv::demo::ShowProviderSession();
  quiv::demo::ShowSessionKeys();
  ShowCatalogues();
  ShowErrorRecord();
  quiv::demo::ShowLateBound();
  return 0;
}
