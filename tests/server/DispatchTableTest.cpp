// The dispatch tables: the numbering rule's fixed points, every member reachable by name in any
// case with the dispatch id its table gives, unique ids, the default member, the optional
// defaults the type library must carry, and the constants catalogue's own ids.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "constants/CConstQUIV.h"
#include "server/CallFrame.h"
#include "server/ClassTables.h"
#include "server/DispatchTable.h"

namespace quiv::server {
namespace {

std::u16string Upper(std::u16string_view text) {
  std::u16string out(text);
  for (char16_t& c : out) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - u'a' + u'A');
  }
  return out;
}

std::u16string Lower(std::u16string_view text) {
  std::u16string out(text);
  for (char16_t& c : out) {
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
  }
  return out;
}

const Member& Find(const ClassTable& table, std::u16string_view name) {
  const Member* member = table.FindByName(name);
  EXPECT_NE(member, nullptr) << std::string(name.begin(), name.end());
  static const Member none;
  return member != nullptr ? *member : none;
}

TEST(DispatchTableTest, LoadProviderIsTheFirstFixedPoint) {
  EXPECT_EQ(Find(CProviderTable(), u"LoadProvider").dispId, 0x60030014);
}

TEST(DispatchTableTest, ConstantsCountDownFromTheSecondFixedPoint) {
  const ClassTable& table = CConstQUIVTable();
  ASSERT_EQ(table.members.size(), CConstQUIV::kPropertyCount);
  EXPECT_EQ(Find(table, u"PROV_ENUMALGS_EX_ITEMS").dispId, 0x68030155);
  for (size_t i = 0; i < table.members.size(); ++i) {
    EXPECT_EQ(table.members[i].dispId, 0x68030155 - static_cast<int32_t>(i));
    EXPECT_EQ(table.members[i].dispId, CConstQUIV::Properties()[i].dispId);
  }
  EXPECT_EQ(table.members.back().dispId, 0x68030000);
}

TEST(DispatchTableTest, ErrorRecordDefaultMemberIsLastErrorWithItsHelpString) {
  const Member& member = Find(CErrHandlerTable(), u"LastError");
  EXPECT_EQ(member.dispId, 0);
  EXPECT_EQ(member.kind, MemberKind::Method);
  EXPECT_EQ(member.help, u"Returns a string describing the last error that occurred.");
}

TEST(DispatchTableTest, EveryMemberIsFoundByNameInAnyCase) {
  for (const ClassTable* table : AllClassTables()) {
    for (const Member& member : table->members) {
      for (const std::u16string& spelling :
           {std::u16string(member.name), Upper(member.name), Lower(member.name)}) {
        const Member* found = table->FindByName(spelling);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->dispId, member.dispId);
      }
      EXPECT_EQ(table->FindByDispId(member.dispId), &member);
    }
    EXPECT_EQ(table->FindByName(u"NoSuchMember"), nullptr);
  }
}

TEST(DispatchTableTest, DispatchIdsAreUniqueAndCarryTheirKind) {
  for (const ClassTable* table : AllClassTables()) {
    std::set<int32_t> ids;
    for (const Member& member : table->members) {
      EXPECT_TRUE(ids.insert(member.dispId).second) << std::hex << member.dispId;
      if (member.dispId == 0) continue;  // the default member
      const int32_t high = member.dispId & static_cast<int32_t>(0xFFFF0000u);
      switch (member.kind) {
        case MemberKind::Method:
          EXPECT_EQ(high, kMethodIdBase);
          break;
        case MemberKind::PropertyGet:
          EXPECT_EQ(high, kPropertyIdBase);
          break;
        case MemberKind::DataMember:
          EXPECT_EQ(high, kDataMemberIdBase);
          EXPECT_NE(member.put, nullptr);
          break;
      }
      EXPECT_EQ(member.dispId & 0xFFFF, member.number);
      EXPECT_LE(member.params.size(), CallFrame::kMaxParams);
      EXPECT_NE(member.call, nullptr);
    }
  }
}

TEST(DispatchTableTest, LastErrorIsADataMemberWithGetAndSetOnEveryClassButTwo) {
  for (const ClassTable* table : AllClassTables()) {
    const Member* member = table->FindByName(u"LastError");
    if (table == &CErrHandlerTable()) continue;  // the record's default member
    if (table == &CConstQUIVTable() || table == &IHashTable() ||
        table == &TolvaOpenSourceLicenseTable()) {
      EXPECT_EQ(member, nullptr);
      continue;
    }
    ASSERT_NE(member, nullptr) << std::string(table->className.begin(), table->className.end());
    EXPECT_EQ(member->kind, MemberKind::DataMember);
    EXPECT_EQ(member->result, AutoType::Object);
    EXPECT_EQ(member->resultObject, ObjectKind::CErrHandler);
  }
  EXPECT_EQ(Find(CProviderTable(), u"LastError").dispId, 0x40030000);
}

// Optional parameters and their defaults, as the type library states them.
struct Optional {
  const ClassTable& (*table)();
  std::u16string_view member;
  std::u16string_view param;
  DefaultValue::Kind kind;
  int32_t number;
  std::u16string_view text;
};

TEST(DispatchTableTest, OptionalParametersCarryTheirDefaults) {
  using K = DefaultValue::Kind;
  const Optional expected[] = {
      {CProviderTable, u"LoadProvider", u"i_sContainer", K::Text, 0, u""},
      {CProviderTable, u"LoadProvider", u"i_lContainerAccess", K::Number, 0, {}},
      {CProviderTable, u"LoadProvider", u"i_lContainerKeysAccess", K::Number, 0, {}},
      {CContainerTable, u"LoadContainer", u"i_lContainerKeysAccess", K::Number, 0, {}},
      {CContainerTable, u"NewContainer", u"i_lContainerKeysAccess", K::Number, 0, {}},
      {CErrHandlerTable, u"LoadError", u"i_oScript", K::Nothing, 0, {}},
      {CErrHandlerTable, u"LoadError", u"i_sComment", K::Text, 0, u""},
      {CRSAKeyPairTable, u"Sign", u"i_lHashAlgID", K::Number, -1, {}},
      {CRSAKeyPairTable, u"VerifySignature", u"i_lHashAlgID", K::Number, -1, {}},
      {CRSAKeyPairTable, u"UnloadPrivateKey", u"i_oSessionKey", K::Nothing, 0, {}},
      {CRSAKeyPairTable, u"LoadKeyPair", u"i_oSessionKey", K::Nothing, 0, {}},
      {CSessionKeyTable, u"Encrypt", u"i_lAmount", K::Number, 1, {}},
      {CSessionKeyTable, u"Decrypt", u"i_lAmount", K::Number, 1, {}},
      {CHashValueTable, u"Hash", u"i_oSessionKey", K::Nothing, 0, {}},
      {CHashValueTable, u"UnloadFingerprint", u"i_nFPrintFormatting", K::Number, 1, {}},
  };
  size_t optionalCount = 0;
  for (const ClassTable* table : AllClassTables()) {
    for (const Member& member : table->members) {
      for (const Param& p : member.params) optionalCount += p.optional ? 1 : 0;
    }
  }
  EXPECT_EQ(optionalCount, std::size(expected));
  for (const Optional& o : expected) {
    const Member& member = Find(o.table(), o.member);
    bool seen = false;
    for (const Param& p : member.params) {
      if (p.name != o.param) continue;
      seen = true;
      EXPECT_TRUE(p.optional);
      EXPECT_EQ(p.defaultValue.kind, o.kind);
      EXPECT_EQ(p.defaultValue.number, o.number);
      EXPECT_EQ(p.defaultValue.text, o.text);
    }
    EXPECT_TRUE(seen) << std::string(o.param.begin(), o.param.end());
  }
}

TEST(DispatchTableTest, ClassesHaveTheirIdentitiesAndCreatability) {
  EXPECT_EQ(CProviderTable().clsid.ToUtf8(), "{11005E58-1605-4823-A111-015C80BEF343}");
  EXPECT_EQ(CProviderTable().iid.ToUtf8(), "{A2E82B9C-EF25-45C8-85C1-A73B02160661}");
  EXPECT_EQ(CProviderTable().interfaceName, u"_CProvider");
  for (const ClassTable* table : {&CContainerTable(), &CMessagetextTable(), &CSessionKeyTable(),
                                  &CRSAKeyPairTable(), &CHashValueTable(), &IHashTable()}) {
    EXPECT_FALSE(table->creatable);
  }
  for (const ClassTable* table : {&CProviderTable(), &CAlgInfoTable(), &CErrHandlerTable(),
                                  &CConstQUIVTable(), &TolvaOpenSourceLicenseTable()}) {
    EXPECT_TRUE(table->creatable);
  }
  EXPECT_TRUE(CConstQUIVTable().appObject);
  EXPECT_TRUE(TolvaOpenSourceLicenseTable().members.empty());
  EXPECT_TRUE(CMessagetextTable().implementsIHash);
  EXPECT_TRUE(CSessionKeyTable().implementsIHash);
  EXPECT_TRUE(CRSAKeyPairTable().implementsIHash);
  EXPECT_EQ(AllClassTables().size(), 11u);
}

}  // namespace
}  // namespace quiv::server
