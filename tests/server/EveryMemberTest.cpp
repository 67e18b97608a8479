// Every member of every class, driven from its table through a real object: reachable by name
// with its table's id, and refusing too many arguments, too few, a missing required one and an
// argument of the wrong type, each with the run time's HRESULT and argument position.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "server/ClassTables.h"
#include "server/DispatchClient.h"
#include "server/DispatchObject.h"
#include "server/FakeDispatch.h"
#include "server/SessionClient.h"
#include "support/QuietLog.h"

namespace quiv::test {
namespace {

using server::AutoType;
using server::ClassTable;
using server::Member;
using server::MemberKind;

const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new QuietEnvironment);

class EveryMemberTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Add(server::CProviderTable(), Share(session.provider.get()));
    Add(server::CContainerTable(), session.Object(u"GetContainerObject"));
    Add(server::CMessagetextTable(), session.Object(u"GetMessageTextObject"));
    Add(server::CSessionKeyTable(), session.Object(u"GetSessionKeyObject"));
    Add(server::CRSAKeyPairTable(), session.Object(u"GetExchangeKeyPairObject"));
    Add(server::CHashValueTable(), session.Object(u"GetHashValueObject"));
    Add(server::CAlgInfoTable(), Create(u"QUIV.CAlgInfo"));
    Add(server::CErrHandlerTable(), Create(u"QUIV.CErrHandler"));
    Add(server::TolvaOpenSourceLicenseTable(), Create(u"QUIV.TolvaOpenSourceLicense"));
    Disp constants;
    QuivGetAppObject(constants.out());
    Add(server::CConstQUIVTable(), std::move(constants));
    void* hashee = nullptr;
    IDispatch* message = objects[2].second.get();
    message->lpVtbl->QueryInterface(message, server::AsGuid(server::IHashTable().iid), &hashee);
    Add(server::IHashTable(), Disp(static_cast<IDispatch*>(hashee)));
  }

  static Disp Share(IDispatch* object) {
    object->lpVtbl->AddRef(object);
    return Disp(object);
  }
  static Disp Create(const char16_t* progId) {
    Disp object;
    EXPECT_EQ(QuivCreateObject(progId, object.out()), S_OK);
    return object;
  }
  void Add(const ClassTable& table, Disp object) {
    ASSERT_TRUE(object);
    objects.emplace_back(&table, std::move(object));
  }

  // A value the parameter's type cannot take.
  VARIANT Wrong(const server::Param& param) {
    switch (param.type) {
      case AutoType::String:
      case AutoType::Variant:
        return Obj(stranger.dispatch());  // a foreign object without a default value
      case AutoType::Bytes:
      case AutoType::Object:
        return I4(5);
      default:
        return Str(u"not a number");
    }
  }

  SessionClient session;
  FakeDispatch stranger;
  std::vector<std::pair<const ClassTable*, Disp>> objects;
};

WORD FlagsOf(const Member& member) {
  return member.kind == MemberKind::Method ? DISPATCH_METHOD : DISPATCH_PROPERTYGET;
}

std::string NameOf(const ClassTable& table, const Member& member) {
  return std::string(table.className.begin(), table.className.end()) + "." +
         std::string(member.name.begin(), member.name.end());
}

TEST_F(EveryMemberTest, EveryMemberIsFoundByNameWithItsTablesId) {
  size_t members = 0;
  for (auto& [table, object] : objects) {
    for (const Member& member : table->members) {
      EXPECT_EQ(IdOf(object.get(), std::u16string(member.name)), member.dispId)
          << NameOf(*table, member);
      ++members;
    }
  }
  size_t inTables = 0;
  for (const ClassTable* table : server::AllClassTables()) inTables += table->members.size();
  EXPECT_EQ(objects.size(), server::AllClassTables().size());
  EXPECT_EQ(members, inTables);
}

TEST_F(EveryMemberTest, TooManyArgumentsAreABadCount) {
  for (auto& [table, object] : objects) {
    for (const Member& member : table->members) {
      std::vector<VARIANT> args;
      for (size_t i = 0; i <= member.params.size(); ++i) args.push_back(I4(0));
      Outcome out;
      InvokeId(out, object.get(), member.dispId, FlagsOf(member), args);
      EXPECT_EQ(out.hr, DISP_E_BADPARAMCOUNT) << NameOf(*table, member);
    }
  }
}

TEST_F(EveryMemberTest, TooFewOrMissingRequiredArgumentsAreRefused) {
  for (auto& [table, object] : objects) {
    for (const Member& member : table->members) {
      const size_t required = member.RequiredCount();
      if (required == 0) continue;
      Outcome none;
      InvokeId(none, object.get(), member.dispId, FlagsOf(member), {});
      EXPECT_EQ(none.hr, DISP_E_BADPARAMCOUNT) << NameOf(*table, member);
      std::vector<VARIANT> missing(member.params.size(), Missing());
      Outcome marked;
      InvokeId(marked, object.get(), member.dispId, FlagsOf(member), missing);
      EXPECT_EQ(marked.hr, DISP_E_PARAMNOTOPTIONAL) << NameOf(*table, member);
      EXPECT_EQ(marked.argErr, member.params.size() - 1) << NameOf(*table, member);
    }
  }
}

TEST_F(EveryMemberTest, AnArgumentOfTheWrongTypeIsATypeMismatchAtItsPosition) {
  for (auto& [table, object] : objects) {
    for (const Member& member : table->members) {
      if (member.params.empty()) continue;
      std::vector<VARIANT> args(member.params.size(), Missing());
      args[0] = Wrong(member.params[0]);
      Outcome out;
      InvokeId(out, object.get(), member.dispId, FlagsOf(member), args);
      EXPECT_EQ(out.hr, DISP_E_TYPEMISMATCH) << NameOf(*table, member);
      EXPECT_EQ(out.argErr, member.params.size() - 1) << NameOf(*table, member);
    }
  }
  EXPECT_EQ(stranger.refs, 1u);
}

TEST_F(EveryMemberTest, PuttingAnythingButADataMemberIsNotFound) {
  for (auto& [table, object] : objects) {
    for (const Member& member : table->members) {
      if (member.kind == MemberKind::DataMember) continue;
      EXPECT_EQ(Put(object.get(), std::u16string(member.name), I4(0), false), DISP_E_MEMBERNOTFOUND)
          << NameOf(*table, member);
    }
  }
}

}  // namespace
}  // namespace quiv::test
