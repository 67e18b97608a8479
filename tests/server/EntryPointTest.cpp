// The in-process server's entry points: class factories of the creatable classes only, creation
// by program id or class id, the predeclared constants object, and DllCanUnloadNow.
#include <gtest/gtest.h>

#include <string>

#include "server/ClassTables.h"
#include "server/DispatchClient.h"
#include "server/DispatchObject.h"
#include "server/quiv_server.h"
#include "support/QuietLog.h"
#include "support/TempKeyStore.h"
#include "support/TempRegistry.h"

namespace quiv::test {
namespace {

using server::AsGuid;

const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new QuietEnvironment);

// Creation by name reads the registry: each test gets an empty one of its own.
class EntryPointTest : public ::testing::Test {
 protected:
  TempRegistry registry;
};

TEST_F(EntryPointTest, NonCreatableClassesAreRefusedByTheirFactory) {
  for (const server::ClassTable* table :
       {&server::CContainerTable(), &server::CMessagetextTable(), &server::CSessionKeyTable(),
        &server::CRSAKeyPairTable(), &server::CHashValueTable(), &server::IHashTable()}) {
    void* factory = reinterpret_cast<void*>(1);
    EXPECT_EQ(DllGetClassObject(AsGuid(table->clsid), &IID_IClassFactory, &factory),
              CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(factory, nullptr);
    Disp object;
    const std::u16string progId = u"QUIV." + std::u16string(table->className);
    EXPECT_EQ(QuivCreateObject(progId.c_str(), object.out()), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_FALSE(object);
  }
}

TEST_F(EntryPointTest, CreatableClassesComeFromTheirFactory) {
  TempKeyStore store;
  for (const server::ClassTable* table :
       {&server::CProviderTable(), &server::CAlgInfoTable(), &server::CErrHandlerTable(),
        &server::CConstQUIVTable(), &server::TolvaOpenSourceLicenseTable()}) {
    void* itf = nullptr;
    ASSERT_EQ(DllGetClassObject(AsGuid(table->clsid), &IID_IClassFactory, &itf), S_OK);
    auto* factory = static_cast<IClassFactory*>(itf);
    void* object = nullptr;
    EXPECT_EQ(factory->lpVtbl->CreateInstance(factory, nullptr, AsGuid(table->iid), &object), S_OK);
    Disp created(static_cast<IDispatch*>(object));
    ASSERT_TRUE(created);
    if (table == &server::CProviderTable()) {
      Outcome done;
      Call(done, created.get(), u"TerminateAll");
    }
    EXPECT_EQ(factory->lpVtbl->CreateInstance(factory, reinterpret_cast<IUnknown*>(created.get()),
                                              &IID_IDispatch, &object),
              CLASS_E_NOAGGREGATION);
    factory->lpVtbl->Release(factory);
  }
}

TEST_F(EntryPointTest, AClassIsCreatedByProgramIdInAnyCaseOrByClassId) {
  Disp byName;
  EXPECT_EQ(QuivCreateObject(u"quiv.cerrhandler", byName.out()), S_OK);
  Disp byId;
  EXPECT_EQ(QuivCreateObject(u"{7AC637FB-A8E6-413B-AE3F-A0C0D17603C6}", byId.out()), S_OK);
  ASSERT_TRUE(byName);
  ASSERT_TRUE(byId);
  EXPECT_NE(byName.get(), byId.get());  // two records
  Disp none;
  EXPECT_EQ(QuivCreateObject(u"QUIV.NoSuchClass", none.out()), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(QuivCreateObject(u"{7AC637FB-A8E6}", none.out()), CO_E_CLASSSTRING);
  EXPECT_EQ(QuivCreateObject(nullptr, none.out()), CO_E_CLASSSTRING);
  EXPECT_EQ(QuivCreateObject(u"QUIV.CErrHandler", nullptr), E_POINTER);
}

TEST_F(EntryPointTest, AScriptReadsAConstantWithoutCreatingTheCatalogue) {
  Disp constants;
  ASSERT_EQ(QuivGetAppObject(constants.out()), S_OK);
  Outcome exportable;
  Get(exportable, constants.get(), u"CRYPT_EXPORTABLE");
  ASSERT_EQ(exportable.hr, S_OK);
  EXPECT_EQ(exportable.result.v.vt, VT_I4);
  EXPECT_EQ(exportable.result.v.lVal, 1);
  Outcome enhanced;
  Get(enhanced, constants.get(), u"ms_enhanced_prov");
  EXPECT_EQ(Text(enhanced.result.v), u"Microsoft Enhanced Cryptographic Provider v1.0");
  Outcome succeed;
  Get(succeed, constants.get(), u"CRYPT_SUCCEED");
  EXPECT_EQ(succeed.result.v.lVal, -1);
  Outcome sha;
  Get(sha, constants.get(), u"CALG_SHA");
  Outcome sha1;
  Get(sha1, constants.get(), u"CALG_SHA1");
  EXPECT_EQ(sha.result.v.lVal, 32772);
  EXPECT_EQ(sha1.result.v.lVal, 32772);
  Disp again;
  ASSERT_EQ(QuivGetAppObject(again.out()), S_OK);
  EXPECT_EQ(again.get(), constants.get());  // the one predeclared instance
  EXPECT_EQ(Put(constants.get(), u"CRYPT_EXPORTABLE", I4(2), false), DISP_E_MEMBERNOTFOUND);
}

TEST_F(EntryPointTest, TheLicenseClassHasNoMembers) {
  Disp license;
  ASSERT_EQ(QuivCreateObject(u"QUIV.TolvaOpenSourceLicense", license.out()), S_OK);
  EXPECT_EQ(IdOf(license.get(), u"Anything"), DISPID_UNKNOWN);
  Outcome value;
  InvokeId(value, license.get(), DISPID_VALUE, DISPATCH_PROPERTYGET, {});
  EXPECT_EQ(value.hr, DISP_E_MEMBERNOTFOUND);
}

TEST_F(EntryPointTest, QueryInterfaceAnswersTheDefaultInterfaceAndIHashOnlyWhereImplemented) {
  Disp record;
  ASSERT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
  void* itf = nullptr;
  ASSERT_EQ(record.get()->lpVtbl->QueryInterface(record.get(),
                                                 AsGuid(server::CErrHandlerTable().iid), &itf),
            S_OK);
  EXPECT_EQ(itf, record.get());
  record.get()->lpVtbl->Release(record.get());
  ASSERT_EQ(record.get()->lpVtbl->QueryInterface(record.get(), &IID_IUnknown, &itf), S_OK);
  EXPECT_EQ(itf, record.get());
  record.get()->lpVtbl->Release(record.get());
  EXPECT_EQ(
      record.get()->lpVtbl->QueryInterface(record.get(), AsGuid(server::IHashTable().iid), &itf),
      E_NOINTERFACE);
  EXPECT_EQ(itf, nullptr);
}

TEST_F(EntryPointTest, TheLibraryCanUnloadOnlyWhenNothingIsHeld) {
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
  {
    Disp record;
    ASSERT_EQ(QuivCreateObject(u"QUIV.CErrHandler", record.out()), S_OK);
    EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  }
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
  void* itf = nullptr;
  ASSERT_EQ(DllGetClassObject(AsGuid(server::CProviderTable().clsid), &IID_IClassFactory, &itf),
            S_OK);
  auto* factory = static_cast<IClassFactory*>(itf);
  factory->lpVtbl->LockServer(factory, TRUE);
  EXPECT_EQ(DllCanUnloadNow(), S_FALSE);
  factory->lpVtbl->LockServer(factory, FALSE);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace quiv::test
