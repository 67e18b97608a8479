// A program written against the installed headers only, as a C++ user writes one: it uses the C
// entry points and every public class (the provider session and its working objects, the
// algorithm catalogue, the error record, the constants, the value types, a page context), so
// that a class, operator or free function that libquiv does not export fails to link here.
// Each check prints what failed; the exit code is the number of failures.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "automation/ByteArray.h"
#include "automation/Dictionary.h"
#include "automation/ErrObject.h"
#include "automation/MapPageContext.h"
#include "automation/Ref.h"
#include "automation/RunTime.h"
#include "automation/RuntimeError.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "data/IHash.h"
#include "errors/CErrHandler.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
#include "signing/CHashValue.h"
#include "signing/CRSAKeyPair.h"
// The C header after the classes: its macros and the catalogue's getters both work.
#include "platform/wincrypt.h"

using namespace quiv;

namespace {

int g_failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    std::printf("FAILED: %s\n", what);
    ++g_failures;
  }
}

template <class T>
void Check(bool ok, const char* what, const Ref<T>& object) {
  if (!ok && !object->m_oLastError.IsNothing()) {
    std::printf("  %s\n", object->m_oLastError->LastError().ToUtf8().c_str());
  }
  Check(ok, what);
}

void CApi() {
  HCRYPTPROV prov = 0;
  Check(CryptAcquireContextA(&prov, nullptr, MS_ENHANCED_PROV_A, PROV_RSA_FULL,
                             CRYPT_VERIFYCONTEXT) != 0,
        "CryptAcquireContextA");
  BYTE buf[16] = {};
  Check(CryptGenRandom(prov, sizeof buf, buf) != 0, "CryptGenRandom");
  CryptReleaseContext(prov, 0);
}

void ValueTypes() {
  // String's ordering (a std::map of Strings), equality, concatenation and conversions.
  std::map<String, String> variables{{u"PATH_INFO", u"/page"}, {u"LOCAL_ADDR", u"127.0.0.1"}};
  variables[String::FromUtf8("HTTP_COOKIE")] = u"id=7";
  Check(variables.size() == 3 && variables.begin()->first == String(u"HTTP_COOKIE"), "String <=>");
  Check((String(u"a") + u"b").ToUtf8() == "ab" && String(u"x") != String(u"y"), "String +, !=");
  Check(String(u" t ").Trim() == String(u"t") && String(u"B").CompareText(u"b") == 0,
        "String text");
  ByteArray bytes{1, 2, 3};
  Check(bytes == ByteArray(std::vector<uint8_t>{1, 2, 3}) && bytes.UBound() == 2, "ByteArray");
  Check(Variant(int32_t{5}) == Variant(int16_t{5}) && Variant(u"t").TextForm() == String(u"t"),
        "Variant ==");
  Dictionary dictionary;
  dictionary.Add(u"k", 1);
  Check(dictionary.Exists(u"k") && dictionary.Count() == 1, "Dictionary");
  try {
    dictionary.Add(u"k", 2);
    Check(false, "Dictionary duplicate raises");
  } catch (const RuntimeError& error) {
    Check(error.Number() == 457, "RuntimeError number");
  }
  Check(CLng(String(u"12")) == 12 && CInt(2.5) == 2, "run-time conversions");
  Ref<Object> nothing = Nothing;
  Check(nothing.IsNothing() && nothing == Nothing, "Ref Nothing");
}

void ErrorRecord() {
  Ref<CErrHandler> record = MakeRef<CErrHandler>();
  ErrObject err;
  err.SetNumber(UNDEFINED_ERROR);
  err.SetDescription(u"d");
  err.SetSource(u"QUIV");
  record->AddParam(u"name", u"value");
  record->LoadError(err, u"QUIV.ChangeCipherModeCode");
  Check(record->FullSource() == String(u"QUIV.ChangeCipherModeCode"), "FullSource");
  Check(record->ErrNumber() == UNDEFINED_ERROR && !record->QUIVError().IsEmpty(), "ErrNumber");
  Check(record->Parameters().Count() == 1 && record->ClassName().IsEmpty(), "Parameters");
  Check(record->TypeName() == String(u"CErrHandler"), "TypeName");
}

void Session() {
  constexpr CConstQUIV c;
  static_assert(CALG_MD5 == 0x8003 && c.CALG_MD5() == 0x8003, "macro and getter");
  Ref<CProvider> provider = CProvider::Create();
  Ref<IPageContext> page = MakeRef<MapPageContext>(
      std::map<String, String>{{u"PATH_INFO", u"/p"}, {u"LOCAL_ADDR", u"::1"}}, u"a=1");
  Check(provider->OnStartPage(page), "OnStartPage", provider);
  Check(provider->SetProviderTypeID(c.PROV_RSA_FULL()) &&
            provider->SetProviderName(c.MS_ENHANCED_PROV()) && provider->LoadProvider(),
        "LoadProvider", provider);

  Ref<CContainer> container;
  String name;
  Check(provider->GetContainerObject(container) && container->GetContainerName(name) &&
            !name.IsEmpty(),
        "CContainer", provider);
  Ref<CAlgInfo> algorithms = MakeRef<CAlgInfo>();
  Check(provider->GetListOfAlgorithms(algorithms) && algorithms->AlgCount() > 0, "CAlgInfo",
        provider);

  Ref<CMessagetext> message;
  Ref<CSessionKey> key;
  Ref<CRSAKeyPair> signature;
  Ref<CHashValue> hash;
  Check(provider->GetMessageTextObject(message) && provider->GetSessionKeyObject(key) &&
            provider->GetSignatureKeyPairObject(signature) && provider->GetHashValueObject(hash),
        "factory", provider);
  Check(message->LoadMessageText(u"Attack at dawn.", STRING_VB), "LoadMessageText", message);
  Check(key->SetKeyAlgorithmID(c.CALG_3DES()) && key->SetKeyPhrase(u"phrase") &&
            key->GenerateSessionKey(),
        "GenerateSessionKey", key);
  AMOUNT amount = ENTIRE;
  Check(key->Encrypt(message, amount) && amount == FINAL_SECTION, "Encrypt, AMOUNT written back",
        key);
  Check(key->Decrypt(message), "Decrypt", key);
  Check(signature->GenerateKeyPair(), "GenerateKeyPair", signature);
  String block;
  bool valid = false;
  Ref<IHash> signee = message;
  Check(signature->Sign(signee, block, STRING_HEX, c.CALG_SHA1()) &&
            signature->VerifySignature(signee, block, STRING_HEX, valid, CALG_SHA1) && valid,
        "Sign and verify", signature);
  String value;
  Check(hash->SetHashAlgorithmID(c.CALG_MD5()) && hash->Hash(signee) &&
            hash->UnloadHashValue(value, STRING_HEX) && value.Length() == 32,
        "CHashValue", hash);

  // A failure reaches the record, with the page's fields.
  Check(!provider->SetProviderName(u"no such provider"), "a refused name fails");
  Check(provider->m_oLastError->WebPageURL() == String(u"/p?a=1") &&
            provider->m_oLastError->RoutineName() == String(u"SetProviderName"),
        "record of the failure");
  Check(provider->TerminateAll(), "TerminateAll", provider);
}

}  // namespace

int main() {
  CApi();
  ValueTypes();
  ErrorRecord();
  Session();
  std::printf("consumer: %d failure(s)\n", g_failures);
  return g_failures;
}
