// CConstQUIV: the catalogue of the platform's cryptographic constants (algorithm classes, types
// and identifiers, key, hash and provider parameters, flags, blob types, provider types and
// names, provider error codes) as 342 read-only properties. Script callers use it in place of
// the platform headers; every class of the library reads the constants it passes to the
// platform from it, at the moment of use, instead of writing them as literals.
//
// Ownership and threads: the class holds no data. Make an instance wherever one is needed (it is
// an empty constexpr object) and call its getters from any thread; nothing is shared, nothing
// can fail. Integer getters are constexpr and inline, so a call costs what the literal costs.
//
//   const quiv::CConstQUIV constants;
//   DWORD flags = constants.CRYPT_EXPORTABLE() | constants.CRYPT_CREATE_SALT();
//   quiv::CConstQUIV::Value v;
//   if (constants.Lookup("calg_rc2", v)) { /* v.kind == Kind::Computed, v.integer == 26114 */ }
//
// Every property, its kind and its value live in one table, CConstQUIV.def; the getters, the
// count, the dispatch ids and the name lookup below are generated from it.
//
// Names shared with the C header: platform/wincrypt.h defines most of these names as object-like
// macros. This header includes wincrypt.h first and then turns each such macro into a global
// constant of the same name and value, the macro now standing for its own name
// (CConstQUIVMacros.def). So a file may use both, in any include order:
//   CryptCreateHash(prov, CALG_MD5, 0, 0, &hash);   // the platform's value, as in C
//   constants.CALG_MD5()                             // the catalogue's getter
// The one difference from the plain C header: a catalogue name in a preprocessor `#if` counts as
// 0 (`#ifdef` still works).
#ifndef QUIV_CONSTANTS_CCONSTQUIV_H
#define QUIV_CONSTANTS_CCONSTQUIV_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "automation/String.h"
#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

#include "constants/CConstQUIVMacros.def"

namespace quiv {

class QUIV_API CConstQUIV final {
 public:
  // How a property gets its value: stored integer, integer computed from three other properties
  // (the CALG_ identifiers), or stored string.
  enum class Kind : uint8_t { Integer, Computed, String };

  // One property as the automation layer binds to it.
  struct Property {
    std::string_view name;  // exactly as callers spell it, e.g. "CRYPT_EXPORTABLE"
    Kind kind;
    int32_t dispId;  // dispatch id; the slot order is the order of Properties()
  };

  // A value read through Lookup. `integer` is set for Integer and Computed, `text` (a view of a
  // static literal, valid for the whole process) for String; the other field is 0 or empty.
  struct Value {
    Kind kind = Kind::Integer;
    int32_t integer = 0;
    std::u16string_view text;
  };

  // Counts of the table, checked at compile time in CConstQUIV.cpp.
  static constexpr size_t kStoredIntegerCount = 0
#define QUIV_CONST_INT(name, value) +1
#define QUIV_CONST_CALG(name, algClass, algType, algSid)
#define QUIV_CONST_STRING(name, text)
#include "constants/CConstQUIV.def"
      ;
  static constexpr size_t kComputedCount = 0
#define QUIV_CONST_INT(name, value)
#define QUIV_CONST_CALG(name, algClass, algType, algSid) +1
#define QUIV_CONST_STRING(name, text)
#include "constants/CConstQUIV.def"
      ;
  static constexpr size_t kStringCount = 0
#define QUIV_CONST_INT(name, value)
#define QUIV_CONST_CALG(name, algClass, algType, algSid)
#define QUIV_CONST_STRING(name, text) +1
#include "constants/CConstQUIV.def"
      ;
  static constexpr size_t kIntegerCount = kStoredIntegerCount + kComputedCount;
  static constexpr size_t kPropertyCount = kIntegerCount + kStringCount;

  // Dispatch ids run downward from this one, which belongs to the first property.
  static constexpr int32_t kFirstDispId = 0x68030155;
  static constexpr int32_t DispIdAt(size_t index) {
    return kFirstDispId - static_cast<int32_t>(index);
  }

  constexpr CConstQUIV() noexcept = default;

  // The getters, one per property, in interface order. Integer getters return the platform's
  // value as a signed 32-bit integer (flags with the top bit set come out negative); string
  // getters return a fresh String. A CALG_ getter ORs its class, type and sub-identifier
  // getters, called on this object.
#define QUIV_CONST_INT(name, value)         \
  constexpr int32_t name() const noexcept { \
    return value;                           \
  }
#define QUIV_CONST_CALG(name, algClass, algType, algSid) \
  constexpr int32_t name() const noexcept {              \
    return algClass() | algType() | algSid();            \
  }
#define QUIV_CONST_STRING(name, text) \
  String name() const {               \
    return String(text);              \
  }
#include "constants/CConstQUIV.def"

  // Every property in interface (slot) order. Never fails.
  static std::span<const Property> Properties() noexcept;

  // The position of `name` in Properties(), compared ASCII case-insensitively as automation
  // binds names; nullopt for a name that is not a property. Never fails.
  static std::optional<size_t> IndexOf(std::string_view name) noexcept;

  // Reads the property called `name` (case-insensitive) through its getter. True and `o_value`
  // filled when the name is a property; false and `o_value` untouched otherwise.
  bool Lookup(std::string_view name, Value& o_value) const noexcept;

  // Reads the property whose dispatch id is `dispId`. True and `o_value` filled when the id
  // belongs to a property; false and `o_value` untouched otherwise.
  bool LookupDispId(int32_t dispId, Value& o_value) const noexcept;

  // Reads the property at `index` of Properties(). False when index >= kPropertyCount.
  bool ValueAt(size_t index, Value& o_value) const noexcept;
};

}  // namespace quiv

#endif
