// The IDL text the build generates says what the tables say: every class, interface and
// enumeration with its identifier, every member with its dispatch id, property kind, parameter
// directions, optional defaults and help strings, and the interface and coclass flags.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "server/ClassTables.h"
#include "server/EnumTables.h"
#include "server/IdlWriter.h"

namespace quiv::server {
namespace {

std::string Narrow(std::u16string_view text) {
  return std::string(text.begin(), text.end());
}

std::string Uuid(const Guid& guid) {
  const std::string text = guid.ToUtf8();
  return "uuid(" + text.substr(1, text.size() - 2) + ")";
}

bool Has(const std::string& idl, const std::string& text) {
  return idl.find(text) != std::string::npos;
}

TEST(IdlTest, TheBuiltFileIsTheTablesText) {
  std::ifstream file(std::string(QUIV_BINARY_DIR) + "/src/quiv.idl", std::ios::binary);
  ASSERT_TRUE(file.good());
  std::stringstream content;
  content << file.rdbuf();
  EXPECT_EQ(content.str(), WriteIdl());
}

TEST(IdlTest, TheLibraryHasItsIdentity) {
  const std::string idl = WriteIdl();
  EXPECT_TRUE(Has(idl, "uuid(FC37858F-3747-44D2-8A34-C6371C2CF212)"));
  EXPECT_TRUE(Has(idl, "version(1.0)"));
  EXPECT_TRUE(Has(idl, "lcid(1033)"));
  EXPECT_TRUE(Has(idl, "helpstring(\"QUIV 1.0\")"));
  EXPECT_TRUE(Has(idl, "library QUIV\n"));
}

TEST(IdlTest, EveryEnumerationAndMemberIsDeclared) {
  const std::string idl = WriteIdl();
  for (const EnumTable& e : AllEnumTables()) {
    const size_t at = idl.find("typedef [" + Uuid(e.guid));
    ASSERT_NE(at, std::string::npos) << Narrow(e.name);
    const size_t end = idl.find("} " + Narrow(e.name) + ";", at);
    ASSERT_NE(end, std::string::npos);
    const std::string body = idl.substr(at, end - at);
    for (const EnumMember& m : e.members) {
      EXPECT_TRUE(Has(body, "[helpstring(\"" + Narrow(m.name) + "\")] " + Narrow(m.name) + " = " +
                                std::to_string(m.value)));
    }
  }
}

// The text of one interface, from its header to its closing brace.
std::string InterfaceText(const std::string& idl, const ClassTable& table) {
  const size_t at = idl.find("interface " + Narrow(table.interfaceName) + " : IDispatch {");
  if (at == std::string::npos) return {};
  const size_t head = idl.rfind(Uuid(table.iid), at);
  return idl.substr(head, idl.find("\n    };", at) - head);
}

TEST(IdlTest, EveryInterfaceHasItsFlagsAndMembers) {
  const std::string idl = WriteIdl();
  for (const ClassTable* table : AllClassTables()) {
    const std::string body = InterfaceText(idl, *table);
    ASSERT_FALSE(body.empty()) << Narrow(table->className);
    for (const char* flag : {"hidden", "dual", "nonextensible", "oleautomation"}) {
      EXPECT_TRUE(Has(body, std::string("      ") + flag)) << flag;
    }
    for (const Member& m : table->members) {
      const char* kind = m.kind == MemberKind::Method ? nullptr : "propget";
      const std::string declaration =
          IdlAttributes(m, kind) + "\n        HRESULT " + Narrow(m.name) + "(";
      const size_t at = body.find(declaration);
      ASSERT_NE(at, std::string::npos) << declaration;
      const std::string signature = body.substr(at, body.find(");", at) - at);
      for (const Param& p : m.params) {
        EXPECT_TRUE(Has(signature, IdlParam(p))) << IdlParam(p);
        EXPECT_TRUE(Has(IdlParam(p), p.byRef ? "[in, out" : "[in]"));
      }
      if (m.kind == MemberKind::DataMember) {
        const char* put = m.result == AutoType::Object ? "propputref" : "propput";
        EXPECT_TRUE(Has(body, IdlAttributes(m, put))) << Narrow(m.name);
      }
      if (!m.help.empty()) {
        EXPECT_TRUE(Has(signature, Narrow(m.help)));
      }
    }
  }
  EXPECT_TRUE(Has(idl, "[in, out, optional, defaultvalue(\"\")] BSTR* i_sContainer"));
  EXPECT_TRUE(Has(idl, "[in, out, optional, defaultvalue(-1)] long* i_lHashAlgID"));
  EXPECT_TRUE(Has(idl, "[in, out, optional, defaultvalue(1)] AMOUNT* i_lAmount"));
  EXPECT_TRUE(Has(idl,
                  "[id(0x00000000), helpstring(\"Returns a string describing the last "
                  "error that occurred.\")]"));
}

TEST(IdlTest, EveryCoclassSaysWhatItIs) {
  const std::string idl = WriteIdl();
  for (const ClassTable* table : AllClassTables()) {
    const size_t at = idl.find("coclass " + Narrow(table->className) + " {");
    ASSERT_NE(at, std::string::npos);
    const size_t head = idl.rfind(Uuid(table->clsid), at);
    ASSERT_NE(head, std::string::npos);
    const std::string attributes = idl.substr(head, at - head);
    EXPECT_EQ(Has(attributes, "noncreatable"), !table->creatable) << Narrow(table->className);
    EXPECT_EQ(Has(attributes, "appobject"), table->appObject);
    const std::string body = idl.substr(at, idl.find("};", at) - at);
    EXPECT_TRUE(Has(body, "[default] interface " + Narrow(table->interfaceName) + ";"));
    EXPECT_EQ(Has(body, "\n        interface _IHash;"), table->implementsIHash);
  }
}

}  // namespace
}  // namespace quiv::server
