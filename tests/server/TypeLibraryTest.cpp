// The type library as a late-bound client reads it: the library's identity, one dual dispatch
// interface and one coclass per class and every enumeration, members with their ids, parameter
// names, directions, optional defaults and help strings, and ITypeInfo::Invoke on an object.
#include <gtest/gtest.h>

#include <string>

#include "server/ClassTables.h"
#include "server/DispatchClient.h"
#include "server/DispatchObject.h"
#include "server/EnumTables.h"
#include "server/quiv_server.h"

namespace quiv::test {
namespace {

using server::AsGuid;
using server::ClassTable;

std::u16string Take(BSTR text) {
  std::u16string out = text != nullptr ? std::u16string(text, SysStringLen(text)) : u"";
  SysFreeString(text);
  return out;
}

class TypeLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(QuivGetTypeLib(&lib), S_OK); }
  void TearDown() override { lib->lpVtbl->Release(lib); }

  ITypeInfo* Info(const server::Guid& guid) {
    ITypeInfo* info = nullptr;
    EXPECT_EQ(lib->lpVtbl->GetTypeInfoOfGuid(lib, AsGuid(guid), &info), S_OK);
    return info;
  }

  ITypeLib* lib = nullptr;
};

TEST_F(TypeLibraryTest, TheLibraryHasItsIdentity) {
  TLIBATTR* attr = nullptr;
  ASSERT_EQ(lib->lpVtbl->GetLibAttr(lib, &attr), S_OK);
  OLECHAR text[39];
  StringFromGUID2(&attr->guid, text, 39);
  EXPECT_EQ(std::u16string(text), u"{FC37858F-3747-44D2-8A34-C6371C2CF212}");
  EXPECT_EQ(attr->lcid, 1033u);
  EXPECT_EQ(attr->wMajorVerNum, 1);
  EXPECT_EQ(attr->wMinorVerNum, 0);
  lib->lpVtbl->ReleaseTLibAttr(lib, attr);
  BSTR name = nullptr;
  BSTR doc = nullptr;
  ASSERT_EQ(lib->lpVtbl->GetDocumentation(lib, -1, &name, &doc, nullptr, nullptr), S_OK);
  EXPECT_EQ(Take(name), u"QUIV");
  EXPECT_EQ(Take(doc), u"QUIV 1.0");
  EXPECT_EQ(lib->lpVtbl->GetTypeInfoCount(lib),
            server::AllEnumTables().size() + 2 * server::AllClassTables().size());
}

TEST_F(TypeLibraryTest, EveryInterfaceIsADualDispatchInterfaceWithItsMembers) {
  for (const ClassTable* table : server::AllClassTables()) {
    ITypeInfo* info = Info(table->iid);
    ASSERT_NE(info, nullptr);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(info->lpVtbl->GetTypeAttr(info, &attr), S_OK);
    EXPECT_EQ(attr->typekind, TKIND_DISPATCH);
    EXPECT_EQ(attr->wTypeFlags, TYPEFLAG_FHIDDEN | TYPEFLAG_FDUAL | TYPEFLAG_FNONEXTENSIBLE |
                                    TYPEFLAG_FOLEAUTOMATION | TYPEFLAG_FDISPATCHABLE);
    size_t expected = 0;
    for (const server::Member& m : table->members) {
      expected += m.kind == server::MemberKind::DataMember ? 2 : 1;
    }
    EXPECT_EQ(attr->cFuncs, expected);
    for (UINT i = 0; i < attr->cFuncs; ++i) {
      FUNCDESC* func = nullptr;
      ASSERT_EQ(info->lpVtbl->GetFuncDesc(info, i, &func), S_OK);
      const server::Member* member = table->FindByDispId(func->memid);
      ASSERT_NE(member, nullptr);
      BSTR names[10] = {};
      UINT count = 0;
      ASSERT_EQ(info->lpVtbl->GetNames(info, func->memid, names, 10, &count), S_OK);
      EXPECT_EQ(Take(names[0]), member->name);
      for (UINT n = 1; n < count; ++n) EXPECT_EQ(Take(names[n]), member->params[n - 1].name);
      if (func->invkind == INVOKE_FUNC || func->invkind == INVOKE_PROPERTYGET) {
        ASSERT_EQ(func->cParams, static_cast<SHORT>(member->params.size()));
        for (SHORT p = 0; p < func->cParams; ++p) {
          const server::Param& param = member->params[static_cast<size_t>(p)];
          const ELEMDESC& e = func->lprgelemdescParam[p];
          EXPECT_EQ(e.tdesc.vt == VT_PTR, param.byRef);
          EXPECT_EQ((e.paramdesc.wParamFlags & PARAMFLAG_FOUT) != 0, param.byRef);
          EXPECT_EQ((e.paramdesc.wParamFlags & PARAMFLAG_FOPT) != 0, param.optional);
        }
      }
      info->lpVtbl->ReleaseFuncDesc(info, func);
    }
    info->lpVtbl->ReleaseTypeAttr(info, attr);
  }
}

TEST_F(TypeLibraryTest, OptionalDefaultsAreInTheDescription) {
  ITypeInfo* info = Info(server::CProviderTable().iid);
  FUNCDESC* func = nullptr;
  ASSERT_EQ(info->lpVtbl->GetFuncDesc(info, 0, &func), S_OK);
  EXPECT_EQ(func->memid, 0x60030014);
  ASSERT_EQ(func->cParams, 3);
  const PARAMDESCEX* container = func->lprgelemdescParam[0].paramdesc.pparamdescex;
  ASSERT_NE(container, nullptr);
  EXPECT_EQ(container->varDefaultValue.vt, VT_BSTR);
  EXPECT_EQ(SysStringLen(container->varDefaultValue.bstrVal), 0u);
  const PARAMDESCEX* access = func->lprgelemdescParam[1].paramdesc.pparamdescex;
  EXPECT_EQ(access->varDefaultValue.vt, VT_I4);
  EXPECT_EQ(access->varDefaultValue.lVal, 0);
  EXPECT_EQ(func->elemdescFunc.tdesc.vt, VT_BOOL);
  info->lpVtbl->ReleaseFuncDesc(info, func);
}

TEST_F(TypeLibraryTest, TheDefaultMemberCarriesItsHelpString) {
  ITypeInfo* info = Info(server::CErrHandlerTable().iid);
  BSTR name = nullptr;
  BSTR doc = nullptr;
  ASSERT_EQ(info->lpVtbl->GetDocumentation(info, DISPID_VALUE, &name, &doc, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(Take(name), u"LastError");
  EXPECT_EQ(Take(doc), u"Returns a string describing the last error that occurred.");
}

TEST_F(TypeLibraryTest, CoclassesSayWhatCanBeCreatedAndWhatTheyImplement) {
  for (const ClassTable* table : server::AllClassTables()) {
    ITypeInfo* info = Info(table->clsid);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(info->lpVtbl->GetTypeAttr(info, &attr), S_OK);
    EXPECT_EQ(attr->typekind, TKIND_COCLASS);
    EXPECT_EQ((attr->wTypeFlags & TYPEFLAG_FCANCREATE) != 0, table->creatable);
    EXPECT_EQ((attr->wTypeFlags & TYPEFLAG_FAPPOBJECT) != 0, table->appObject);
    EXPECT_EQ(attr->cImplTypes, table->implementsIHash ? 2 : 1);
    for (UINT i = 0; i < attr->cImplTypes; ++i) {
      HREFTYPE ref = 0;
      ASSERT_EQ(info->lpVtbl->GetRefTypeOfImplType(info, i, &ref), S_OK);
      ITypeInfo* itf = nullptr;
      ASSERT_EQ(info->lpVtbl->GetRefTypeInfo(info, ref, &itf), S_OK);
      BSTR name = nullptr;
      itf->lpVtbl->GetDocumentation(itf, MEMBERID_NIL, &name, nullptr, nullptr, nullptr);
      EXPECT_EQ(Take(name), i == 0 ? table->interfaceName : u"_IHash");
      INT flags = 0;
      info->lpVtbl->GetImplTypeFlags(info, i, &flags);
      EXPECT_EQ(flags, i == 0 ? IMPLTYPEFLAG_FDEFAULT : 0);
    }
    info->lpVtbl->ReleaseTypeAttr(info, attr);
  }
}

TEST_F(TypeLibraryTest, EnumerationsHaveTheirMembersValuesAndHelpStrings) {
  for (const server::EnumTable& table : server::AllEnumTables()) {
    ITypeInfo* info = Info(table.guid);
    TYPEATTR* attr = nullptr;
    ASSERT_EQ(info->lpVtbl->GetTypeAttr(info, &attr), S_OK);
    EXPECT_EQ(attr->typekind, TKIND_ENUM);
    ASSERT_EQ(attr->cVars, table.members.size());
    for (UINT i = 0; i < attr->cVars; ++i) {
      VARDESC* var = nullptr;
      ASSERT_EQ(info->lpVtbl->GetVarDesc(info, i, &var), S_OK);
      EXPECT_EQ(var->varkind, VAR_CONST);
      EXPECT_EQ(var->lpvarValue->lVal, table.members[i].value);
      BSTR name = nullptr;
      BSTR doc = nullptr;
      info->lpVtbl->GetDocumentation(info, var->memid, &name, &doc, nullptr, nullptr);
      EXPECT_EQ(Take(name), table.members[i].name);
      EXPECT_EQ(Take(doc), table.members[i].name);
      info->lpVtbl->ReleaseVarDesc(info, var);
    }
    info->lpVtbl->ReleaseTypeAttr(info, attr);
  }
  ASSERT_EQ(server::AllEnumTables().size(), 10u);
  EXPECT_EQ(server::FindEnum(u"QUIV_ERROR")->members.size(), 156u);
}

TEST_F(TypeLibraryTest, AnObjectDescribesItselfAndCanBeCalledThroughItsDescription) {
  Disp constants;
  ASSERT_EQ(QuivGetAppObject(constants.out()), S_OK);
  ITypeInfo* info = nullptr;
  ASSERT_EQ(constants.get()->lpVtbl->GetTypeInfo(constants.get(), 0, 0, &info), S_OK);
  EXPECT_EQ(info, Info(server::CConstQUIVTable().iid));
  LPOLESTR names[1] = {const_cast<LPOLESTR>(u"crypt_exportable")};
  MEMBERID id = 0;
  ASSERT_EQ(info->lpVtbl->GetIDsOfNames(info, names, 1, &id), S_OK);
  DISPPARAMS none{};
  Var result;
  ASSERT_EQ(info->lpVtbl->Invoke(info, constants.get(), id, DISPATCH_PROPERTYGET, &none, &result.v,
                                 nullptr, nullptr),
            S_OK);
  EXPECT_EQ(result.v.lVal, 1);
  Disp record;
  ASSERT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
  EXPECT_EQ(info->lpVtbl->Invoke(info, record.get(), id, DISPATCH_PROPERTYGET, &none, &result.v,
                                 nullptr, nullptr),
            E_INVALIDARG);
  BOOL isName = FALSE;
  ASSERT_EQ(lib->lpVtbl->IsName(lib, const_cast<LPOLESTR>(u"loadprovider"), 0, &isName), S_OK);
  EXPECT_TRUE(isName);
}

}  // namespace
}  // namespace quiv::test
