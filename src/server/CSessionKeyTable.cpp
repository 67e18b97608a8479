// The dispatch table of CSessionKey, in the order of its dispatch interface. Fields: the key
// handle, the provider, has-key, the phrase, key and hash algorithms, key length, unloadable,
// key tools, converter, constants catalogue and the error record (12; LastError is the twelfth,
// number 11); internal routines: Set Provider, GetKeyHandle, GetKeyParam, GetRC2KeyLength,
// IfRC2ChangeLength, ChangeRC2KeyLength (6). Its public routines start at number 18. The class
// also implements _IHash (IHashTable).
#include "keys/CSessionKey.h"

#include "data/CMessagetext.h"
#include "server/ClassTables.h"
#include "signing/CRSAKeyPair.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 12 + 6;
constexpr uint16_t kLastErrorField = 11;

CSessionKey& Key(Object& o) {
  return Self<CSessionKey>(o);
}

using Getter = bool (CSessionKey::*)(int32_t&);
template <Getter Get>
void LongOut(Object& o, CallFrame& f) {
  f.Return((Key(o).*Get)(f.Long(0)));
}

using TextGetter = bool (CSessionKey::*)(String&);
template <TextGetter Get>
void TextOut(Object& o, CallFrame& f) {
  f.Return((Key(o).*Get)(f.Str(0)));
}

using Action = bool (CSessionKey::*)();
template <Action Do>
void Run(Object& o, CallFrame& f) {
  f.Return((Key(o).*Do)());
}

// Encrypt and Decrypt: the message and the optional by-reference amount, which they square.
void AddCrypt(TableBuilder& b, std::u16string_view name, Invoker call) {
  b.Method(name,
           {Obj(u"i_oMsgTxt", ObjectKind::CMessagetext),
            OptNumber(u"i_lAmount", AutoType::Long, 1, u"AMOUNT")},
           AutoType::Boolean, call);
}

void AddCipherMembers(TableBuilder& b) {
  AddCrypt(b, u"Encrypt", [](Object& o, CallFrame& f) {
    f.Return(Key(o).Encrypt(f.ObjAs<CMessagetext>(0), f.Long(1)));
  });
  AddCrypt(b, u"Decrypt", [](Object& o, CallFrame& f) {
    f.Return(Key(o).Decrypt(f.ObjAs<CMessagetext>(0), f.Long(1)));
  });
  b.Method(u"ChangeCipherModeCode", {In(u"i_sCipherModeCode", AutoType::String)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).ChangeCipherModeCode(f.Str(0))); });
  b.Method(u"ChangeCipherModeID", {In(u"i_lCipherModeID", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).ChangeCipherModeID(f.Long(0))); });
  b.Method(u"ChangeFeedbackBits", {In(u"i_lFeedbackBits", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).ChangeFeedbackBits(f.Long(0))); });
  b.Method(u"Clear", {}, AutoType::Boolean, Run<&CSessionKey::Clear>);
  b.Method(u"GetKeyAlgorithmID", {In(u"o_lKeyAlgID", AutoType::Long)}, AutoType::Boolean,
           LongOut<&CSessionKey::GetKeyAlgorithmID>);
  b.Method(u"GetKeyAlgorithmCode", {In(u"o_sKeyAlgCode", AutoType::String)}, AutoType::Boolean,
           TextOut<&CSessionKey::GetKeyAlgorithmCode>);
  b.Method(u"GetBlockLengthInBits", {In(u"o_lBlockLength", AutoType::Long)}, AutoType::Boolean,
           LongOut<&CSessionKey::GetBlockLengthInBits>);
  b.Method(u"GetBlockLengthInBytes", {In(u"o_lBlockLength", AutoType::Long)}, AutoType::Boolean,
           LongOut<&CSessionKey::GetBlockLengthInBytes>);
  b.Method(u"GetKeyLength", {In(u"o_lKeyLen", AutoType::Long)}, AutoType::Boolean,
           LongOut<&CSessionKey::GetKeyLength>);
  b.Method(u"GetCipherModeID", {In(u"o_lMode", AutoType::Long)}, AutoType::Boolean,
           LongOut<&CSessionKey::GetCipherModeID>);
  b.Method(u"GetCipherModeCode", {In(u"o_sMode", AutoType::String)}, AutoType::Boolean,
           TextOut<&CSessionKey::GetCipherModeCode>);
  b.Method(u"UnloadIV",
           {In(u"o_sIV", AutoType::String), In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT")},
           AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).UnloadIV(f.Str(0), FormatArg(f, 1))); });
  b.Method(u"GetFeedbackBits", {In(u"o_lModeBits", AutoType::Long)}, AutoType::Boolean,
           LongOut<&CSessionKey::GetFeedbackBits>);
}

void AddSettingMembers(TableBuilder& b) {
  b.Method(u"SetHashAlgorithmID", {ByVal(u"i_lHashAlgID", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).SetHashAlgorithmID(f.Long(0))); });
  b.Method(u"SetKeyAlgorithmID", {ByVal(u"i_lKeyAlgID", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).SetKeyAlgorithmID(f.Long(0))); });
  b.Method(u"GetRandomBytes", {In(u"o_abRnd", AutoType::Bytes)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).GetRandomBytes(f.Bytes(0))); });
  b.Method(u"AddRandomIV", {}, AutoType::Boolean, Run<&CSessionKey::AddRandomIV>);
  b.Method(u"LoadAndAddIV",
           {In(u"i_sIV", AutoType::String), In(u"i_nLoadFormat", AutoType::Long, u"DATA_FORMAT")},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Key(o).LoadAndAddIV(f.Str(0), FormatArg(f, 1)));
           });
  b.Method(u"SetKeyLength", {ByVal(u"i_lKeyLen", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).SetKeyLength(f.Long(0))); });
  b.Method(u"SetUnloadable", {In(u"i_fKeyUnloadable", AutoType::Boolean)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).SetUnloadable(f.Bool(0))); });
  b.Method(u"SetKeyPhrase", {In(u"i_sKeyPhrase", AutoType::String)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Key(o).SetKeyPhrase(f.Str(0))); });
  b.Method(u"SetDefaultKeySettings", {}, AutoType::Boolean,
           Run<&CSessionKey::SetDefaultKeySettings>);
  b.Method(u"GenerateSessionKey", {}, AutoType::Boolean, Run<&CSessionKey::GenerateSessionKey>);
}

void AddTransportMembers(TableBuilder& b) {
  b.Method(u"LoadSessionKey",
           {Obj(u"i_oExKeys", ObjectKind::CRSAKeyPair), In(u"io_sSessionKey", AutoType::String),
            In(u"i_nLoadFormat", AutoType::Long, u"DATA_FORMAT")},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Key(o).LoadSessionKey(f.ObjAs<CRSAKeyPair>(0), f.Str(1), FormatArg(f, 2)));
           });
  b.Method(u"GetKeyPermissions",
           {In(u"o_fEncrypt", AutoType::Boolean), In(u"o_fDecrypt", AutoType::Boolean),
            In(u"o_fExport", AutoType::Boolean), In(u"o_fRead", AutoType::Boolean),
            In(u"o_fWrite", AutoType::Boolean), In(u"o_fMAC", AutoType::Boolean)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Key(o).GetKeyPermissions(f.Bool(0), f.Bool(1), f.Bool(2), f.Bool(3),
                                               f.Bool(4), f.Bool(5)));
           });
  b.Method(
      u"UnloadSessionKey",
      {Obj(u"i_oExchKeyPair", ObjectKind::CRSAKeyPair), In(u"io_sSessionKey", AutoType::String),
       In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT")},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Key(o).UnloadSessionKey(f.ObjAs<CRSAKeyPair>(0), f.Str(1), FormatArg(f, 2)));
      });
}

ClassTable Build() {
  TableBuilder b(u"CSessionKey", "{BD56087B-5CD4-495C-823F-ED8F4B7104EF}",
                 "{B20ECF13-5F9C-467F-9F98-4FF041905204}", kFirstRoutine);
  b.ImplementsIHash();
  AddCipherMembers(b);
  AddSettingMembers(b);
  AddTransportMembers(b);
  AddOnStartPage<CSessionKey>(b);
  AddLastError<CSessionKey>(b, kLastErrorField);
  return b.Build();
}

}  // namespace

const ClassTable& CSessionKeyTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
