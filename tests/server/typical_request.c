/*
 * The library's typical request performed entirely through the automation surface from C, with
 * nothing but the C entry points and IDispatch: create a CProvider by program id, load the
 * Enhanced provider's default container, fill the message, derive an RC2 key from a pass phrase
 * (the algorithm read by name from the global constants object), encrypt, unload the
 * ciphertext as hex, hash it with SHA-1, wrap the session key for the exchange pair, sign the
 * message with the signature pair and verify the signature.
 *
 * Prints three lines: "ciphertext <hex>", "sha1 <hex>" and "verified <True|False>", and exits 0;
 * on a failure prints the failing step (and the error record's message) to stderr and exits 1.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "server/quiv_server.h"

static int Failed(const char* step, HRESULT hr) {
  fprintf(stderr, "%s failed: 0x%08X\n", step, (unsigned)hr);
  return 1;
}

/* Invoke `name` on `object` with `count` arguments given first to last. */
static HRESULT CallByName(IDispatch* object, const OLECHAR* name, WORD flags, VARIANT* args,
                          UINT count, VARIANT* result) {
  DISPID id = DISPID_UNKNOWN;
  LPOLESTR names[1];
  names[0] = (LPOLESTR)name;
  HRESULT hr = object->lpVtbl->GetIDsOfNames(object, &IID_NULL, names, 1, 0, &id);
  if (FAILED(hr)) return hr;
  VARIANT reversed[8];
  for (UINT i = 0; i < count; ++i) reversed[i] = args[count - 1 - i];
  DISPPARAMS params = {reversed, NULL, count, 0};
  EXCEPINFO excep;
  memset(&excep, 0, sizeof excep);
  UINT argErr = 0;
  VariantInit(result);
  hr = object->lpVtbl->Invoke(object, id, &IID_NULL, 0, flags, &params, result, &excep, &argErr);
  SysFreeString(excep.bstrSource);
  SysFreeString(excep.bstrDescription);
  SysFreeString(excep.bstrHelpFile);
  return hr;
}

/* A method whose boolean result must be True. */
static int Ok(IDispatch* object, const OLECHAR* name, VARIANT* args, UINT count) {
  VARIANT result;
  HRESULT hr = CallByName(object, name, DISPATCH_METHOD, args, count, &result);
  int ok = SUCCEEDED(hr) && result.vt == VT_BOOL && result.boolVal == VARIANT_TRUE;
  VariantClear(&result);
  if (!ok) {
    char narrow[64];
    size_t i = 0;
    for (; name[i] != 0 && i + 1 < sizeof narrow; ++i) narrow[i] = (char)name[i];
    narrow[i] = 0;
    fprintf(stderr, "%s failed (0x%08X)\n", narrow, (unsigned)hr);
  }
  return ok;
}

static VARIANT Long(LONG value) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_I4;
  v.lVal = value;
  return v;
}

static VARIANT Text(const OLECHAR* text) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(text);
  return v;
}

static VARIANT Object(IDispatch* object) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_DISPATCH;
  v.pdispVal = object;
  return v;
}

static VARIANT RefTo(VARIANT* target) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_BYREF | VT_VARIANT;
  v.pvarVal = target;
  return v;
}

/* One of the provider's working objects, through its factory method. */
static IDispatch* Fetch(IDispatch* provider, const OLECHAR* method) {
  VARIANT slot;
  VariantInit(&slot);
  VARIANT arg = RefTo(&slot);
  if (!Ok(provider, method, &arg, 1) || slot.vt != VT_DISPATCH) {
    VariantClear(&slot);
    return NULL;
  }
  return slot.pdispVal; /* the caller's reference now */
}

static void PrintText(const char* label, const VARIANT* text) {
  printf("%s ", label);
  if (text->vt == VT_BSTR) {
    for (UINT i = 0; i < SysStringLen(text->bstrVal); ++i) putchar((char)text->bstrVal[i]);
  }
  putchar('\n');
}

static LONG Constant(const OLECHAR* name) {
  IDispatch* constants = NULL;
  if (FAILED(QuivGetAppObject(&constants))) return 0;
  VARIANT value;
  HRESULT hr = CallByName(constants, name, DISPATCH_PROPERTYGET, NULL, 0, &value);
  constants->lpVtbl->Release(constants);
  return SUCCEEDED(hr) && value.vt == VT_I4 ? value.lVal : 0;
}

static int Run(IDispatch* provider) {
  const LONG stringVb = 3;
  const LONG stringHex = 2;
  VARIANT args[4];
  args[0] = Long(Constant(u"PROV_RSA_FULL"));
  if (!Ok(provider, u"SetProviderTypeID", args, 1)) return 1;
  args[0] = Text(u"Microsoft Enhanced Cryptographic Provider v1.0");
  int ok = Ok(provider, u"SetProviderName", args, 1);
  VariantClear(&args[0]);
  if (!ok || !Ok(provider, u"LoadProvider", NULL, 0)) return 1;

  IDispatch* message = Fetch(provider, u"GetMessageTextObject");
  IDispatch* key = Fetch(provider, u"GetSessionKeyObject");
  IDispatch* hash = Fetch(provider, u"GetHashValueObject");
  IDispatch* exchange = Fetch(provider, u"GetExchangeKeyPairObject");
  IDispatch* signer = Fetch(provider, u"GetSignatureKeyPairObject");
  VARIANT cipherText, digest, wrapped, signature, valid;
  VariantInit(&cipherText);
  VariantInit(&digest);
  VariantInit(&wrapped);
  VariantInit(&signature);
  VariantInit(&valid);
  ok = message && key && hash && exchange && signer;

  args[0] = Text(u"The typical request, from C.");
  args[1] = Long(stringVb);
  ok = ok && Ok(message, u"LoadMessageText", args, 2);
  VariantClear(&args[0]);
  args[0] = Long(Constant(u"CALG_RC2"));
  ok = ok && Ok(key, u"SetKeyAlgorithmID", args, 1);
  args[0] = Text(u"correct horse battery staple");
  ok = ok && Ok(key, u"SetKeyPhrase", args, 1);
  VariantClear(&args[0]);
  ok = ok && Ok(key, u"GenerateSessionKey", NULL, 0);
  args[0] = Object(message);
  ok = ok && Ok(key, u"Encrypt", args, 1);
  args[0] = RefTo(&cipherText);
  args[1] = Long(stringHex);
  ok = ok && Ok(message, u"UnloadMessageText", args, 2);

  args[0] = Long(Constant(u"CALG_SHA1"));
  ok = ok && Ok(hash, u"SetHashAlgorithmID", args, 1);
  args[0] = Object(message);
  ok = ok && Ok(hash, u"Hash", args, 1);
  args[0] = RefTo(&digest);
  args[1] = Long(stringHex);
  ok = ok && Ok(hash, u"UnloadHashValue", args, 2);

  ok = ok && Ok(exchange, u"GenerateKeyPair", NULL, 0);
  args[0] = Object(exchange);
  args[1] = RefTo(&wrapped);
  args[2] = Long(stringHex);
  ok = ok && Ok(key, u"UnloadSessionKey", args, 3);

  ok = ok && Ok(signer, u"GenerateKeyPair", NULL, 0);
  args[0] = Object(message);
  args[1] = RefTo(&signature);
  args[2] = Long(stringHex);
  ok = ok && Ok(signer, u"Sign", args, 3);
  args[0] = Object(message);
  args[1] = signature; /* borrowed: the BSTR stays ours */
  args[2] = Long(stringHex);
  args[3] = RefTo(&valid);
  ok = ok && Ok(signer, u"VerifySignature", args, 4);

  if (ok) {
    PrintText("ciphertext", &cipherText);
    PrintText("sha1", &digest);
    printf("verified %s\n", valid.vt == VT_BOOL && valid.boolVal ? "True" : "False");
  }
  VariantClear(&cipherText);
  VariantClear(&digest);
  VariantClear(&wrapped);
  VariantClear(&signature);
  VariantClear(&valid);
  IDispatch* held[5] = {message, key, hash, exchange, signer};
  for (int i = 0; i < 5; ++i) {
    if (held[i] != NULL) held[i]->lpVtbl->Release(held[i]);
  }
  return ok ? 0 : 1;
}

int main(void) {
  IDispatch* provider = NULL;
  HRESULT hr = QuivCreateObject(u"QUIV.CProvider", &provider);
  if (FAILED(hr)) return Failed("QuivCreateObject", hr);
  int status = Run(provider);
  VARIANT done;
  CallByName(provider, u"TerminateAll", DISPATCH_METHOD, NULL, 0, &done);
  provider->lpVtbl->Release(provider);
  if (DllCanUnloadNow() != S_OK) return Failed("DllCanUnloadNow", S_FALSE);
  return status;
}
