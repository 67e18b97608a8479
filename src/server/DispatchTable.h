// DispatchTable: the one description of a public class as automation callers see it. Each class
// has one table (its members in slot order, with dispatch id, kind, parameters, automation
// types, by-reference flags, optional defaults, help strings, and the code that calls the C++
// member); Invoke, GetIDsOfNames, the type information, the IDL text of the type library and
// the consistency tests all read it, so a member is described here and nowhere else.
//
// Dispatch identifiers. The high word says what a member is: 0x4003 a public data member (the
// LastError property, the fields of CErrHandler; get and let/set share the id), 0x6003 a method,
// 0x6803 a read-only property with code behind it. The low word is the member's number within
// its class, and the numbering rule is:
//
//   Every class numbers all the members its description names, in the order it names them:
//   first the fields of its data model, private ones included (so a public data member's number
//   is its field position: LastError is 0 where it is the first field), then its internal
//   (Friend and private) routines, then its public methods and properties in slot order.
//   A table therefore states two things, its routines' first number (fields + internal routines)
//   and, for each data member, its field position; every other number follows from slot order.
//   The constants catalogue is the one class that counts downward: its 342 properties run from
//   341 (0x155) for the first to 0 for the last.
//
// This reproduces the fixed points callers bind to: CProvider has 14 fields and 6 internal
// routines, so LoadProvider, its first public routine, is 20 (0x60030014); PROV_ENUMALGS_EX_ITEMS,
// the first constant, is 0x68030155. One member overrides its number: CErrHandler's LastError()
// is the default member, dispatch id 0.
//
// Tables are built once, on first use, and never change afterwards (safe to read from any
// thread).
#ifndef QUIV_SERVER_DISPATCHTABLE_H
#define QUIV_SERVER_DISPATCHTABLE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "automation/Object.h"
#include "server/Guid.h"

namespace quiv::server {

class CallFrame;

// The automation type of a parameter, a result or a data member.
enum class AutoType : uint8_t {
  None,     // no value (a routine without result)
  Integer,  // 16-bit signed (VT_I2)
  Long,     // 32-bit signed (VT_I4)
  Double,   // VT_R8
  Boolean,  // VT_BOOL, true is -1
  String,   // BSTR
  Bytes,    // SAFEARRAY of bytes (VT_ARRAY | VT_UI1)
  Variant,  // any value (VT_VARIANT)
  Object,   // an object reference (IDispatch); ObjectKind says which
};

// Which objects an Object parameter or result accepts. The library's own classes are matched
// by their C++ type; the three outside kinds are any caller object with the members the
// library calls (see ForeignDispatch.h).
enum class ObjectKind : uint8_t {
  None,
  CAlgInfo,
  CContainer,
  CErrHandler,
  CHashValue,
  CMessagetext,
  CRSAKeyPair,
  CSessionKey,
  IHash,        // any library object that implements _IHash (found through QueryInterface)
  PageContext,  // the caller's page: ServerVariable(name) and QueryString
  Dictionary,   // the caller's dictionary: RemoveAll and Add(key, item)
  ErrObject,    // the caller's error object: Number, Source, Description, LastDllError, Clear
};

// What a member is.
enum class MemberKind : uint8_t {
  Method,       // 0x6003xxxx, DISPATCH_METHOD
  PropertyGet,  // 0x6803xxxx, read-only property with code behind it
  DataMember,   // 0x4003xxxx, get plus let (values) or set (objects)
};

inline constexpr int32_t kDataMemberIdBase = 0x40030000;
inline constexpr int32_t kMethodIdBase = 0x60030000;
inline constexpr int32_t kPropertyIdBase = 0x68030000;
inline constexpr int32_t kDefaultMemberId = 0;  // DISPID_VALUE

// A default value for an optional parameter, as the type library states it.
struct DefaultValue {
  enum class Kind : uint8_t { None, Number, Text, Nothing };
  Kind kind = Kind::None;
  int32_t number = 0;
  std::u16string_view text;
};

struct Param {
  std::u16string_view name;
  AutoType type = AutoType::Variant;
  ObjectKind object = ObjectKind::None;
  std::u16string_view enumName;  // the enumeration the value belongs to, or empty
  bool byRef = true;             // the run time's default passing
  bool optional = false;
  DefaultValue defaultValue;
};

// Calls the C++ member: reads the coerced arguments from the frame, writes results into it.
// May throw (a RuntimeError for a routine without trap); Invoke turns that into an HRESULT.
using Invoker = void (*)(Object& self, CallFrame& frame);

struct Member {
  std::u16string_view name;
  MemberKind kind = MemberKind::Method;
  int32_t dispId = 0;
  uint16_t number = 0;  // the low word before any override (kept for the consistency tests)
  std::vector<Param> params;
  AutoType result = AutoType::None;
  ObjectKind resultObject = ObjectKind::None;
  std::u16string_view resultEnum;
  std::u16string_view help;
  Invoker call = nullptr;  // method or getter
  Invoker put = nullptr;   // data member: let (values) or set (objects)
  size_t RequiredCount() const;
};

struct ClassTable {
  std::u16string_view className;  // "CProvider"
  std::u16string interfaceName;   // "_CProvider"
  Guid clsid;
  Guid iid;
  bool creatable = false;
  bool appObject = false;        // predeclared global instance (the constants catalogue)
  bool implementsIHash = false;  // the coclass also implements _IHash
  std::vector<Member> members;   // slot order

  // Case-insensitive, as the run time binds names; nullptr when absent.
  const Member* FindByName(std::u16string_view name) const;
  const Member* FindByDispId(int32_t dispId) const;

  // Filled by TableBuilder::Build.
  std::unordered_map<std::u16string, size_t> byName;
  std::unordered_map<int32_t, size_t> byDispId;
};

// Builds a class table, numbering its members by the rule above.
class TableBuilder {
 public:
  TableBuilder(std::u16string_view className, const char* clsid, const char* iid,
               uint16_t firstRoutineNumber);
  TableBuilder& Creatable();
  TableBuilder& AppObject();
  TableBuilder& ImplementsIHash();
  // Counting downward from the first routine number (the constants catalogue).
  TableBuilder& CountDown();

  TableBuilder& Method(std::u16string_view name, std::initializer_list<Param> params,
                       AutoType result, Invoker call, std::u16string_view help = {});
  TableBuilder& ObjectMethod(std::u16string_view name, std::initializer_list<Param> params,
                             ObjectKind result, Invoker call);
  TableBuilder& Property(std::u16string_view name, AutoType result, Invoker get,
                         ObjectKind resultObject = ObjectKind::None);
  TableBuilder& DataMember(std::u16string_view name, uint16_t fieldNumber, AutoType type,
                           Invoker get, Invoker put, ObjectKind object = ObjectKind::None);
  // Gives the last member added another dispatch id (the default member).
  TableBuilder& WithDispId(int32_t dispId);
  TableBuilder& WithHelp(std::u16string_view help);
  TableBuilder& WithResultEnum(std::u16string_view enumName);
  ClassTable Build();

 private:
  uint16_t NextNumber();
  ClassTable m_table;
  uint16_t m_next;
  bool m_countDown = false;
};

// Parameter helpers for the tables.
Param In(std::u16string_view name, AutoType type, std::u16string_view enumName = {});
Param ByVal(std::u16string_view name, AutoType type, std::u16string_view enumName = {});
Param Obj(std::u16string_view name, ObjectKind kind);
Param OptNumber(std::u16string_view name, AutoType type, int32_t value,
                std::u16string_view enumName = {});
Param OptText(std::u16string_view name, std::u16string_view value);
Param OptObj(std::u16string_view name, ObjectKind kind);

// The name of an object kind as the type library shows it ("_CMessagetext", "IDispatch").
std::u16string_view ObjectKindInterface(ObjectKind kind);

}  // namespace quiv::server

#endif
