// Invoke as callers use it: by name, with the run time's argument rules (reverse order, named
// arguments, coercion, by-reference write-back, optional defaults), the run time's errors, and
// the library's own rules across the boundary (failures answer S_OK with a false result and a
// loaded LastError; the same instance is the same IDispatch; object arguments are library
// objects).
#include <gtest/gtest.h>

#include <string>

#include "server/ClassTables.h"
#include "server/DispatchClient.h"
#include "server/FakeDispatch.h"
#include "server/SessionClient.h"
#include "support/QuietLog.h"

namespace quiv::test {
namespace {

const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new QuietEnvironment);

constexpr int32_t kStringHex = 2;
constexpr int32_t kStringVb = 3;

class InvokeTest : public ::testing::Test {
 protected:
  SessionClient session;
  IDispatch* provider() { return session.provider.get(); }
};

TEST_F(InvokeTest, AFailingMethodAnswersFalseWithALoadedLastErrorReadableByName) {
  Outcome out;
  Call(out, provider(), u"SetProviderName", {Str(u"No Such Provider")});
  ASSERT_EQ(out.hr, S_OK);
  ASSERT_EQ(out.result.v.vt, VT_BOOL);
  EXPECT_EQ(out.result.v.boolVal, VARIANT_FALSE);

  Outcome record;
  Get(record, provider(), u"lasterror");
  ASSERT_EQ(record.hr, S_OK);
  ASSERT_EQ(record.result.v.vt, VT_DISPATCH);
  IDispatch* lastError = record.result.v.pdispVal;
  Outcome number;
  Get(number, lastError, u"ErrNumber");
  EXPECT_EQ(number.result.v.lVal, -2147220859);  // PROVIDER_ERROR_PROVIDER_UNSUPPORTED_...
  Outcome routine;
  Get(routine, lastError, u"RoutineName");
  EXPECT_EQ(Text(routine.result.v), u"SetProviderName");
  // The default member (dispatch id 0), read as a value as a script printing the record does.
  Outcome message;
  InvokeId(message, lastError, DISPID_VALUE, DISPATCH_PROPERTYGET, {});
  ASSERT_EQ(message.hr, S_OK);
  const std::u16string text = Text(message.result.v);
  EXPECT_EQ(text.rfind(u"QUIV.CProvider.SetProviderName ", 0), 0u);
  EXPECT_NE(text.find(u"PROVIDER_ERROR_PROVIDER_UNSUPPORTED_IN_THIS_QUIV_VERSION"),
            std::u16string::npos);
  Outcome byName;
  Call(byName, lastError, u"LastError");
  EXPECT_EQ(Text(byName.result.v), text);
}

TEST_F(InvokeTest, AByReferenceArgumentReceivesTheTrimmedTypeCode) {
  Var code(Str(u"  PROV_RSA_FULL  "));
  Outcome out;
  Call(out, provider(), u"SetProviderTypeCode", {Ref(code.v)});
  EXPECT_TRUE(IsTrue(out.result.v));
  EXPECT_EQ(Text(code.v), u"PROV_RSA_FULL");
}

TEST_F(InvokeTest, AByValueArgumentToAByReferenceParameterIsNotWrittenBack) {
  Var code(Str(u"  PROV_RSA_FULL  "));
  VARIANT copy;
  VariantInit(&copy);
  ASSERT_EQ(VariantCopy(&copy, &code.v), S_OK);
  Outcome out;
  Call(out, provider(), u"SetProviderTypeCode", {copy});
  EXPECT_TRUE(IsTrue(out.result.v));
  EXPECT_EQ(Text(code.v), u"  PROV_RSA_FULL  ");
}

TEST_F(InvokeTest, ATypedByReferenceArgumentKeepsItsType) {
  BSTR text = SysAllocString(u" PROV_RSA_FULL");
  VARIANT arg;
  VariantInit(&arg);
  arg.vt = VT_BYREF | VT_BSTR;
  arg.pbstrVal = &text;
  Outcome out;
  Call(out, provider(), u"SetProviderTypeCode", {arg});
  EXPECT_TRUE(IsTrue(out.result.v));
  EXPECT_EQ(std::u16string(text, SysStringLen(text)), u"PROV_RSA_FULL");
  SysFreeString(text);

  LONG type = 0;
  VARIANT typeArg;
  VariantInit(&typeArg);
  typeArg.vt = VT_BYREF | VT_I4;
  typeArg.plVal = &type;
  Outcome id;
  Call(id, provider(), u"GetProviderTypeID", {typeArg});
  EXPECT_TRUE(IsTrue(id.result.v));
  EXPECT_EQ(type, 1);
}

TEST_F(InvokeTest, ArgumentsAreCoercedAsTheRunTimeCoercesThem) {
  Outcome fromText;
  Call(fromText, provider(), u"SetProviderTypeID", {Str(u"1")});
  EXPECT_EQ(fromText.hr, S_OK);
  EXPECT_TRUE(IsTrue(fromText.result.v));
  Outcome fromShort;
  Call(fromShort, provider(), u"SetProviderTypeID", {I2(1)});
  EXPECT_TRUE(IsTrue(fromShort.result.v));
  Outcome fromDouble;
  Call(fromDouble, provider(), u"SetProviderTypeID", {R8(1.0)});
  EXPECT_TRUE(IsTrue(fromDouble.result.v));
  Outcome fromBool;  // True is -1: not PROV_RSA_FULL
  Call(fromBool, provider(), u"SetProviderTypeID", {Bool(true)});
  EXPECT_EQ(fromBool.hr, S_OK);
  EXPECT_EQ(fromBool.result.v.boolVal, VARIANT_FALSE);
}

TEST_F(InvokeTest, ANonNumericStringIsATypeMismatchAtItsPosition) {
  Outcome out;
  Call(out, provider(), u"SetProviderTypeID", {Str(u"one")});
  EXPECT_EQ(out.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(out.argErr, 0u);
  // The second of three arguments sits at rgvarg[1]; the third at rgvarg[0].
  Outcome third;
  Call(third, provider(), u"LoadProvider", {Str(u""), I4(0), Str(u"many")});
  EXPECT_EQ(third.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(third.argErr, 0u);
  Outcome first;
  Call(first, provider(), u"LoadProvider", {Obj(provider()), I4(0), I4(0)});
  EXPECT_EQ(first.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(first.argErr, 2u);
}

TEST_F(InvokeTest, ANumberTooLargeOverflows) {
  Outcome out;
  Call(out, provider(), u"SetProviderTypeID", {R8(1e12)});
  EXPECT_EQ(out.hr, DISP_E_OVERFLOW);
  EXPECT_EQ(out.argErr, 0u);
}

TEST_F(InvokeTest, WrongArgumentCountsAreRefused) {
  Outcome tooMany;
  Call(tooMany, provider(), u"SetProviderTypeID", {I4(1), I4(1)});
  EXPECT_EQ(tooMany.hr, DISP_E_BADPARAMCOUNT);
  Outcome tooFew;
  Call(tooFew, provider(), u"SetProviderTypeID");
  EXPECT_EQ(tooFew.hr, DISP_E_BADPARAMCOUNT);
  Outcome missing;
  Call(missing, provider(), u"SetProviderTypeID", {Missing()});
  EXPECT_EQ(missing.hr, DISP_E_PARAMNOTOPTIONAL);
  EXPECT_EQ(missing.argErr, 0u);
}

TEST_F(InvokeTest, MissingOptionalArgumentsTakeTheirDefaults) {
  Outcome none;
  Call(none, provider(), u"LoadProvider");
  EXPECT_TRUE(IsTrue(none.result.v));
  Outcome marked;
  Call(marked, provider(), u"LoadProvider", {Missing(), Missing(), Missing()});
  EXPECT_TRUE(IsTrue(marked.result.v));
  Outcome partly;
  Call(partly, provider(), u"LoadProvider", {Str(u""), Missing()});
  EXPECT_TRUE(IsTrue(partly.result.v));
}

TEST_F(InvokeTest, NamedArgumentsFindTheirParameters) {
  LPOLESTR names[2] = {const_cast<LPOLESTR>(u"SetProviderTypeID"),
                       const_cast<LPOLESTR>(u"I_LPROVIDERTYPEID")};
  DISPID ids[2] = {};
  ASSERT_EQ(provider()->lpVtbl->GetIDsOfNames(provider(), &IID_NULL, names, 2, 0, ids), S_OK);
  EXPECT_EQ(ids[1], 0);
  Outcome out;
  InvokeId(out, provider(), ids[0], DISPATCH_METHOD, {I4(1)}, {0});
  EXPECT_TRUE(IsTrue(out.result.v));
}

TEST_F(InvokeTest, UnknownNamesAndMembersAreReportedAsTheRunTimeDoes) {
  LPOLESTR names[1] = {const_cast<LPOLESTR>(u"LoadProviderX")};
  DISPID id = 0;
  EXPECT_EQ(provider()->lpVtbl->GetIDsOfNames(provider(), &IID_NULL, names, 1, 0, &id),
            DISP_E_UNKNOWNNAME);
  EXPECT_EQ(id, DISPID_UNKNOWN);
  Outcome noSuchId;
  InvokeId(noSuchId, provider(), 0x60031234, DISPATCH_METHOD, {});
  EXPECT_EQ(noSuchId.hr, DISP_E_MEMBERNOTFOUND);
  // A method cannot be put, nor read as a property.
  EXPECT_EQ(Put(provider(), u"LoadProvider", I4(1), false), DISP_E_MEMBERNOTFOUND);
  Outcome asProperty;
  InvokeId(asProperty, provider(), IdOf(provider(), u"LoadProvider"), DISPATCH_PROPERTYGET, {});
  EXPECT_EQ(asProperty.hr, DISP_E_MEMBERNOTFOUND);
}

TEST_F(InvokeTest, DataMembersAreLetAndObjectsAreSet) {
  Disp record;
  ASSERT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
  EXPECT_EQ(Put(record.get(), u"Comments", Str(u"a note"), false), S_OK);
  Outcome comments;
  Get(comments, record.get(), u"Comments");
  EXPECT_EQ(Text(comments.result.v), u"a note");
  Outcome flag;
  Get(flag, record.get(), u"WebRedirectFlag");
  EXPECT_TRUE(IsTrue(flag.result.v));
  // LastError takes an object: set, not let.
  EXPECT_EQ(Put(provider(), u"LastError", Obj(record.get()), false), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Put(provider(), u"LastError", Obj(record.get()), true), S_OK);
  Outcome back;
  Get(back, provider(), u"LastError");
  EXPECT_EQ(back.result.v.pdispVal, record.get());
  EXPECT_EQ(Put(provider(), u"LastError", Obj(provider()), true), DISP_E_TYPEMISMATCH);
}

TEST_F(InvokeTest, TheSameInstanceIsTheSameDispatchPointer) {
  Disp first = session.Object(u"GetSessionKeyObject");
  Disp second = session.Object(u"GetSessionKeyObject");
  ASSERT_TRUE(first);
  EXPECT_EQ(first.get(), second.get());
  Disp exchange = session.Object(u"GetExchangeKeyPairObject");
  Disp exchangeAgain = session.Object(u"GetExchangeKeyPairObject");
  EXPECT_EQ(exchange.get(), exchangeAgain.get());
  Outcome generated;
  Call(generated, exchange.get(), u"GenerateKeyPair");
  ASSERT_TRUE(IsTrue(generated.result.v));
  Outcome view;
  Get(view, exchange.get(), u"PublicKey");
  EXPECT_EQ(view.result.v.pdispVal, exchange.get());  // the view is the same object
}

TEST_F(InvokeTest, EncryptSquaresAByReferenceAmountAndTheMessageUnloadsAsHex) {
  Disp message = session.Object(u"GetMessageTextObject");
  Disp key = session.Object(u"GetSessionKeyObject");
  Outcome load;
  Call(load, message.get(), u"LoadMessageText", {Str(u"0102030405060708090A"), I4(kStringHex)});
  ASSERT_TRUE(IsTrue(load.result.v));
  Outcome phrase;
  Call(phrase, key.get(), u"SetKeyPhrase", {Str(u"pass phrase")});
  Outcome generate;
  Call(generate, key.get(), u"GenerateSessionKey");
  ASSERT_TRUE(IsTrue(generate.result.v));
  Var amount(I4(-1));  // ENTIRE
  Outcome encrypt;
  Call(encrypt, key.get(), u"Encrypt", {Obj(message.get()), Ref(amount.v)});
  ASSERT_TRUE(IsTrue(encrypt.result.v));
  EXPECT_EQ(amount.v.vt, VT_I4);
  EXPECT_EQ(amount.v.lVal, 1);
  Var hex(Empty());
  Outcome unload;
  Call(unload, message.get(), u"UnloadMessageText", {Ref(hex.v), I4(kStringHex)});
  ASSERT_TRUE(IsTrue(unload.result.v));
  EXPECT_EQ(Text(hex.v).size(), 32u);  // 10 bytes padded to two RC2 blocks
  Outcome decrypt;
  Call(decrypt, key.get(), u"Decrypt", {Obj(message.get())});
  ASSERT_TRUE(IsTrue(decrypt.result.v));
  Var plain(Empty());
  Outcome unloadPlain;
  Call(unloadPlain, message.get(), u"UnloadMessageText", {Ref(plain.v), I4(kStringHex)});
  EXPECT_EQ(Text(plain.v), u"0102030405060708090A");
}

TEST_F(InvokeTest, AMessageIsTheHashableOfSignThroughQueryInterface) {
  Disp message = session.Object(u"GetMessageTextObject");
  Disp signer = session.Object(u"GetSignatureKeyPairObject");
  Outcome generated;
  Call(generated, signer.get(), u"GenerateKeyPair");
  ASSERT_TRUE(IsTrue(generated.result.v));
  Outcome load;
  Call(load, message.get(), u"LoadMessageText", {Str(u"signed text"), I4(kStringVb)});
  Var signature(Empty());
  Var algorithm(I4(-1));
  Outcome sign;
  Call(sign, signer.get(), u"Sign",
       {Obj(message.get()), Ref(signature.v), I4(kStringHex), Ref(algorithm.v)});
  ASSERT_EQ(sign.hr, S_OK);
  ASSERT_TRUE(IsTrue(sign.result.v));
  EXPECT_EQ(Text(signature.v).size(), 2u * 128u);  // 1024-bit default key
  EXPECT_EQ(algorithm.v.lVal, 32771);              // -1 became CALG_MD5
  Var valid(Bool(false));
  Outcome verify;
  Call(verify, signer.get(), u"VerifySignature",
       {Obj(message.get()), Str(Text(signature.v)), I4(kStringHex), Ref(valid.v)});
  ASSERT_TRUE(IsTrue(verify.result.v));
  EXPECT_TRUE(IsTrue(valid.v));
  // The _IHash interface of the message answers the hashable contract by name.
  void* hashee = nullptr;
  ASSERT_EQ(message.get()->lpVtbl->QueryInterface(
                message.get(), quiv::server::AsGuid(quiv::server::IHashTable().iid), &hashee),
            S_OK);
  Disp hashItf(static_cast<IDispatch*>(hashee));
  Var what(I2(0));
  Outcome whatToHash;
  Call(whatToHash, hashItf.get(), u"WhatToHash", {Ref(what.v)});
  EXPECT_TRUE(IsTrue(whatToHash.result.v));
  EXPECT_EQ(what.v.iVal, 6);  // MESSAGETEXT
}

TEST_F(InvokeTest, ObjectArgumentsMustBeTheLibrarysOwnOfTheRightClass) {
  Disp key = session.Object(u"GetSessionKeyObject");
  FakeDispatch foreign;
  Outcome stranger;
  Call(stranger, key.get(), u"Encrypt", {Obj(foreign.dispatch())});
  EXPECT_EQ(stranger.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(stranger.argErr, 0u);
  Outcome wrongClass;
  Call(wrongClass, key.get(), u"Encrypt", {Obj(provider())});
  EXPECT_EQ(wrongClass.hr, DISP_E_TYPEMISMATCH);
  // The provider does not implement _IHash.
  Disp signer = session.Object(u"GetSignatureKeyPairObject");
  Var signature(Empty());
  Outcome notHashable;
  Call(notHashable, signer.get(), u"Sign", {Obj(provider()), Ref(signature.v), I4(kStringHex)});
  EXPECT_EQ(notHashable.hr, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(foreign.refs, 1u);
}

TEST_F(InvokeTest, ARunTimeErrorOfARoutineWithoutTrapIsAnException) {
  Disp catalogue;
  ASSERT_EQ(QuivCreateObject(u"QUIV.CAlgInfo", catalogue.out()), S_OK);
  Outcome count;
  Get(count, catalogue.get(), u"AlgCount");
  ASSERT_EQ(count.hr, DISP_E_EXCEPTION);
  EXPECT_EQ(count.excep.scode, static_cast<SCODE>(0x800A0009));  // subscript out of range
  EXPECT_EQ(std::u16string(count.excep.bstrDescription), u"Subscript out of range");
  // Filled through the provider, the same catalogue answers.
  Outcome fill;
  Call(fill, provider(), u"GetListOfAlgorithms", {Obj(catalogue.get())});
  ASSERT_TRUE(IsTrue(fill.result.v));
  Outcome first;
  Call(first, catalogue.get(), u"MoveFirst");
  EXPECT_EQ(first.hr, S_OK);
  Outcome filled;
  Get(filled, catalogue.get(), u"AlgCount");
  EXPECT_EQ(filled.hr, S_OK);
  EXPECT_GT(filled.result.v.lVal, 5);
}

TEST_F(InvokeTest, ADuplicateParameterNameReachesTheCallerAsError457) {
  Disp record;
  ASSERT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
  Outcome first;
  Call(first, record.get(), u"AddParam", {Str(u"name"), I4(1)});
  EXPECT_EQ(first.hr, S_OK);
  Outcome second;
  Call(second, record.get(), u"AddParam", {Str(u"name"), I4(2)});
  EXPECT_EQ(second.hr, DISP_E_EXCEPTION);
  EXPECT_EQ(second.excep.scode, static_cast<SCODE>(0x800A01C9));
}

}  // namespace
}  // namespace quiv::test
