// The dispatch table of CRSAKeyPair. Fields: LastError, the provider, the key handle, the key
// kind (AT_KEYEXCHANGE or AT_SIGNATURE), the modulus, the has-key-pair, public-only and unloadable
// flags, the hash view, converter, key tools, hash object and constants catalogue (13); internal
// routines: SetExOrSigKeyObject, GetKeyPairContents, GetKeyPairHandle, GetPublicKeyHandle,
// SetDefaultKeySettings, Set Provider and the three IHash routines it implements (9). Its
// public routines start at number 22. The class also implements _IHash (IHashTable).
#include "signing/CRSAKeyPair.h"

#include "keys/CSessionKey.h"
#include "server/ClassTables.h"

namespace quiv::server {

namespace {

constexpr uint16_t kFirstRoutine = 13 + 9;

CRSAKeyPair& Pair(Object& o) {
  return Self<CRSAKeyPair>(o);
}

void AddKeyMembers(TableBuilder& b) {
  b.Method(u"SetModulus", {ByVal(u"i_lModulus", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Pair(o).SetModulus(f.Long(0))); });
  b.Method(u"GetModulus", {In(u"o_lModulus", AutoType::Long)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Pair(o).GetModulus(f.Long(0))); });
  b.Method(u"GenerateKeyPair", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Pair(o).GenerateKeyPair()); });
  b.Method(u"Clear", {}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Pair(o).Clear()); });
  b.Property(
      u"PublicKey", AutoType::Object,
      [](Object& o, CallFrame& f) { f.Return(Pair(o).PublicKey()); }, ObjectKind::CRSAKeyPair);
  b.Property(
      u"PrivateKey", AutoType::Object,
      [](Object& o, CallFrame& f) { f.Return(Pair(o).PrivateKey()); }, ObjectKind::CRSAKeyPair);
  AddOnStartPage<CRSAKeyPair>(b);
}

void AddSignatureMembers(TableBuilder& b) {
  b.Method(u"Sign",
           {Obj(u"i_oSignee", ObjectKind::IHash), In(u"o_sSignatureBlock", AutoType::String),
            In(u"o_nSignatureBlockFormat", AutoType::Long, u"DATA_FORMAT"),
            OptNumber(u"i_lHashAlgID", AutoType::Long, -1)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Pair(o).Sign(f.ObjAs<IHash>(0), f.Str(1), FormatArg(f, 2), f.Long(3)));
           });
  b.Method(u"VerifySignature",
           {Obj(u"i_oSignedObject", ObjectKind::IHash), In(u"i_sSigBlock", AutoType::String),
            In(u"i_nSigBlockFormat", AutoType::Long, u"DATA_FORMAT"),
            In(u"o_fValid", AutoType::Boolean), OptNumber(u"i_lHashAlgID", AutoType::Long, -1)},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Pair(o).VerifySignature(f.ObjAs<IHash>(0), f.Str(1), FormatArg(f, 2),
                                              f.Bool(3), f.Long(4)));
           });
}

void AddTransferMembers(TableBuilder& b) {
  b.Method(
      u"UnloadPrivateKey",
      {In(u"i_sKeyPair", AutoType::String), In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT"),
       OptObj(u"i_oSessionKey", ObjectKind::CSessionKey)},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Pair(o).UnloadPrivateKey(f.Str(0), FormatArg(f, 1), f.ObjAs<CSessionKey>(2)));
      });
  b.Method(u"UnloadPublicKey",
           {In(u"io_sPublicKey", AutoType::String),
            In(u"i_nUnloadFormat", AutoType::Long, u"DATA_FORMAT")},
           AutoType::Boolean, [](Object& o, CallFrame& f) {
             f.Return(Pair(o).UnloadPublicKey(f.Str(0), FormatArg(f, 1)));
           });
  b.Method(
      u"LoadKeyPair",
      {In(u"i_sKeyPair", AutoType::String), In(u"i_nLoadFormat", AutoType::Long, u"DATA_FORMAT"),
       OptObj(u"i_oSessionKey", ObjectKind::CSessionKey)},
      AutoType::Boolean, [](Object& o, CallFrame& f) {
        f.Return(Pair(o).LoadKeyPair(f.Str(0), FormatArg(f, 1), f.ObjAs<CSessionKey>(2)));
      });
  b.Method(
      u"LoadPublicKey",
      {In(u"i_sPublicKey", AutoType::String), In(u"i_nLoadFormat", AutoType::Long, u"DATA_FORMAT")},
      AutoType::Boolean,
      [](Object& o, CallFrame& f) { f.Return(Pair(o).LoadPublicKey(f.Str(0), FormatArg(f, 1))); });
  b.Method(u"SetUnloadable", {In(u"i_fUnloadable", AutoType::Boolean)}, AutoType::Boolean,
           [](Object& o, CallFrame& f) { f.Return(Pair(o).SetUnloadable(f.Bool(0))); });
}

ClassTable Build() {
  TableBuilder b(u"CRSAKeyPair", "{037BBB13-1715-490E-B738-BDB11C013BD3}",
                 "{2F7E83FA-EAFA-4A4F-B8E7-145E9DFA4CD6}", kFirstRoutine);
  b.ImplementsIHash();
  AddKeyMembers(b);
  AddSignatureMembers(b);
  AddTransferMembers(b);
  AddLastError<CRSAKeyPair>(b, 0);
  return b.Build();
}

}  // namespace

const ClassTable& CRSAKeyPairTable() {
  static const ClassTable table = Build();
  return table;
}

}  // namespace quiv::server
