// RegistryText: the text form of the registry file, read strictly and written canonically.
//
// The file is UTF-8 text. Blank lines and lines starting with '#' are comments. The first other
// line is the format marker "quiv-registry 1"; then one section per class:
//
//   quiv-registry 1
//   [QUIV.CProvider]
//   clsid = {11005E58-1605-4823-A111-015C80BEF343}
//   class = CProvider
//   library = /usr/lib/x86_64-linux-gnu/libquiv.so.1
//   threading = Apartment
//   typelib = {FC37858F-3747-44D2-8A34-C6371C2CF212}
//   version = 1.0
//
// The section name is the program id. Each of the six keys appears exactly once per section, in
// any order; blanks around names, '=' and values are ignored. Values: class and type library ids
// as braced GUIDs (hex in either case), the class name an identifier, the library an absolute
// path, the threading model one of Apartment, Free, Both, Neutral, the version "major.minor" in
// decimal (0..65535 each). Program ids are unique ignoring ASCII case, class ids are unique.
// Anything else (a missing marker, an unknown or repeated key, a key outside a section, a bad
// value, a duplicate) makes the whole file invalid: nothing is guessed.
#ifndef QUIV_SERVER_REGISTRYTEXT_H
#define QUIV_SERVER_REGISTRYTEXT_H

#include <string>
#include <string_view>
#include <vector>

#include "server/RegistryEntry.h"

namespace quiv::server {

class RegistryText final {
 public:
  static constexpr std::string_view kMarker = "quiv-registry 1";
  static constexpr size_t kMaxProgIdLength = 39;

  // The entries of a file, in file order. throws std::invalid_argument whose what() is
  // "line N: <what is wrong>" (line 0 for the file as a whole).
  static std::vector<RegistryEntry> Parse(std::string_view text);

  // The canonical text of `entries` (a heading comment, the marker, one section each, in order).
  // The entries must be valid and unique (Check); Parse(Format(e)) == e.
  static std::string Format(const std::vector<RegistryEntry>& entries);

  // Throws std::invalid_argument saying which field of `entry` is not valid.
  static void Check(const RegistryEntry& entry);

  // ASCII case-insensitive program id comparison, as the platform matches program ids.
  static bool SameProgId(std::string_view a, std::string_view b);
};

}  // namespace quiv::server

#endif
