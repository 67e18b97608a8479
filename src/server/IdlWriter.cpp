#include "server/IdlWriter.h"

#include <cstdio>
#include <string_view>

#include "server/ClassTables.h"
#include "server/EnumTables.h"

namespace quiv::server {

namespace {

std::string Narrow(std::u16string_view text) {
  return std::string(text.begin(), text.end());  // table names are ASCII
}

std::string Hex(int32_t value) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "0x%08X", static_cast<uint32_t>(value));
  return buffer;
}

// "{ABC...}" without braces, as IDL's uuid() takes it.
std::string Uuid(const Guid& guid) {
  const std::string text = guid.ToUtf8();
  return text.substr(1, text.size() - 2);
}

std::string Quoted(std::u16string_view text) {
  std::string out = "\"";
  for (char16_t c : text) {
    if (c == u'"' || c == u'\\') out.push_back('\\');
    out.push_back(static_cast<char>(c));
  }
  return out + "\"";
}

std::string BaseType(AutoType type, ObjectKind object, std::u16string_view enumName) {
  if (!enumName.empty()) return Narrow(enumName);
  switch (type) {
    case AutoType::Integer:
      return "short";
    case AutoType::Long:
      return "long";
    case AutoType::Double:
      return "double";
    case AutoType::Boolean:
      return "VARIANT_BOOL";
    case AutoType::String:
      return "BSTR";
    case AutoType::Bytes:
      return "SAFEARRAY(unsigned char)";
    case AutoType::Variant:
      return "VARIANT";
    case AutoType::Object:
      return Narrow(ObjectKindInterface(object)) + "*";
    default:
      return "void";
  }
}

std::string DefaultText(const DefaultValue& value) {
  switch (value.kind) {
    case DefaultValue::Kind::Number:
      return std::to_string(value.number);
    case DefaultValue::Kind::Text:
      return Quoted(value.text);
    case DefaultValue::Kind::Nothing:
      return "0";
    default:
      return {};
  }
}

std::string ResultParam(const Member& member) {
  return "[out, retval] " + BaseType(member.result, member.resultObject, member.resultEnum) + "*";
}

void WriteMethod(std::string& out, const Member& member, const char* propKind) {
  out += "        " + IdlAttributes(member, propKind) + "\n";
  out += "        HRESULT " + Narrow(member.name) + "(";
  std::vector<std::string> params;
  for (const Param& p : member.params) params.push_back(IdlParam(p));
  if (member.result != AutoType::None) params.push_back(ResultParam(member));
  for (size_t i = 0; i < params.size(); ++i) {
    out += "\n                        " + params[i] + (i + 1 < params.size() ? "," : "");
  }
  out += ");\n";
}

// A data member is a property: get plus let (a value) or set (an object).
void WriteDataMember(std::string& out, const Member& member) {
  WriteMethod(out, member, "propget");
  Member put = member;
  put.result = AutoType::None;
  Param value = ByVal(member.name, member.result);
  value.object = member.resultObject;
  put.params = {value};
  WriteMethod(out, put, member.result == AutoType::Object ? "propputref" : "propput");
}

void WriteInterface(std::string& out, const ClassTable& table) {
  out += "    [\n      odl,\n      uuid(" + Uuid(table.iid) +
         "),\n      version(1.0),\n      hidden,\n      dual,\n      nonextensible,\n"
         "      oleautomation\n    ]\n";
  out += "    interface " + Narrow(table.interfaceName) + " : IDispatch {\n";
  for (const Member& member : table.members) {
    if (member.kind == MemberKind::DataMember) {
      WriteDataMember(out, member);
    } else {
      WriteMethod(out, member, member.kind == MemberKind::PropertyGet ? "propget" : nullptr);
    }
  }
  out += "    };\n\n";
}

void WriteCoclass(std::string& out, const ClassTable& table) {
  out += "    [\n      uuid(" + Uuid(table.clsid) + "),\n      version(1.0)";
  if (table.appObject) out += ",\n      appobject";
  if (!table.creatable) out += ",\n      noncreatable";
  out += "\n    ]\n    coclass " + Narrow(table.className) + " {\n";
  out += "        [default] interface " + Narrow(table.interfaceName) + ";\n";
  if (table.implementsIHash) out += "        interface _IHash;\n";
  out += "    };\n\n";
}

void WriteEnum(std::string& out, const EnumTable& table) {
  out += "    typedef [uuid(" + Uuid(table.guid) + "), version(1.0)]\n    enum {\n";
  for (size_t i = 0; i < table.members.size(); ++i) {
    const EnumMember& m = table.members[i];
    out += "        [helpstring(" + Quoted(m.name) + ")] " + Narrow(m.name) + " = " +
           std::to_string(m.value) + (i + 1 < table.members.size() ? "," : "") + "\n";
  }
  out += "    } " + Narrow(table.name) + ";\n\n";
}

}  // namespace

std::string IdlTypeName(const Param& param) {
  const std::string base = BaseType(param.type, param.object, param.enumName);
  return param.byRef ? base + "*" : base;
}

std::string IdlParam(const Param& param) {
  std::string attributes = param.byRef ? "[in, out" : "[in";
  if (param.optional) {
    attributes += ", optional";
    const std::string value = DefaultText(param.defaultValue);
    if (!value.empty()) attributes += ", defaultvalue(" + value + ")";
  }
  return attributes + "] " + IdlTypeName(param) + " " + Narrow(param.name);
}

std::string IdlAttributes(const Member& member, const char* propKind) {
  std::string out = "[id(" + Hex(member.dispId) + ")";
  if (propKind != nullptr) out += ", " + std::string(propKind);
  if (!member.help.empty()) out += ", helpstring(" + Quoted(member.help) + ")";
  return out + "]";
}

std::string WriteIdl() {
  std::string out =
      "// The type library of QUIV, generated from the library's dispatch tables by quiv_idl.\n"
      "// Do not edit: change the tables and rebuild.\n\n";
  out += "[\n  uuid(" +
         Uuid(*Guid::Parse(std::u16string(LibraryIdentity::kGuid, LibraryIdentity::kGuid + 38))) +
         "),\n  version(" + std::to_string(LibraryIdentity::kMajor) + "." +
         std::to_string(LibraryIdentity::kMinor) + "),\n  lcid(" +
         std::to_string(LibraryIdentity::kLcid) + "),\n  helpstring(\"" + LibraryIdentity::kHelp +
         "\")\n]\nlibrary " + LibraryIdentity::kName + "\n{\n";
  out += "    importlib(\"stdole2.tlb\");\n\n";
  for (const ClassTable* table : AllClassTables()) {
    out += "    interface " + Narrow(table->interfaceName) + ";\n";
  }
  out += "\n";
  for (const EnumTable& table : AllEnumTables()) WriteEnum(out, table);
  for (const ClassTable* table : AllClassTables()) {
    WriteInterface(out, *table);
    WriteCoclass(out, *table);
  }
  out += "};\n";
  return out;
}

}  // namespace quiv::server
