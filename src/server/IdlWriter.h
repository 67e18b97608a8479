// IdlWriter: the IDL text of the type library, written from the class and enumeration tables
// (the build runs it through quiv_idl and installs the result with the headers). It declares
// the library (identity, version, locale, help string), every enumeration with its identifier
// and members (each with its name as help string), every default interface with its flags
// (dual, hidden, nonextensible, oleautomation) and members (dispatch id, property kind,
// parameter directions, optional defaults, help strings, the boolean result as retval), and
// every coclass (appobject, noncreatable, the interfaces it implements).
#ifndef QUIV_SERVER_IDLWRITER_H
#define QUIV_SERVER_IDLWRITER_H

#include <string>

#include "server/DispatchTable.h"

namespace quiv::server {

// The type library's own identity.
struct LibraryIdentity {
  static constexpr const char* kName = "QUIV";
  static constexpr const char* kHelp = "QUIV 1.0";
  static constexpr const char* kGuid = "{FC37858F-3747-44D2-8A34-C6371C2CF212}";
  static constexpr unsigned kMajor = 1;
  static constexpr unsigned kMinor = 0;
  static constexpr unsigned kLcid = 1033;
};

// The whole IDL text (UTF-8).
std::string WriteIdl();

// Pieces the text is made of, also used by the tests to find each member in it.
std::string IdlTypeName(const Param& param);
std::string IdlParam(const Param& param);
// "[id(0x60030014)]" and the rest of a member's attribute list.
std::string IdlAttributes(const Member& member, const char* propKind);

}  // namespace quiv::server

#endif
