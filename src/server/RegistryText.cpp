#include "server/RegistryText.h"

#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>

#include "server/GuidText.h"

namespace quiv::server {

namespace {

constexpr size_t kMaxClassNameLength = 255;
constexpr size_t kMaxLibraryLength = 4096;  // PATH_MAX
constexpr std::array<std::string_view, 4> kThreadingModels = {"Apartment", "Free", "Both",
                                                              "Neutral"};

// The keys of a section, in the order Format writes them.
enum Key { kClsid, kClass, kLibrary, kThreading, kTypelib, kVersion, kKeyCount };
constexpr std::array<std::string_view, kKeyCount> kKeyNames = {"clsid",     "class",   "library",
                                                               "threading", "typelib", "version"};

[[noreturn]] void Fail(size_t line, const std::string& what) {
  throw std::invalid_argument("line " + std::to_string(line) + ": " + what);
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

bool IsLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The platform's rule for program ids: no leading digit, no punctuation but '.', at most 39
// characters; '_' is allowed, as in identifiers.
bool IsProgId(std::string_view s) {
  if (s.empty() || s.size() > RegistryText::kMaxProgIdLength || !IsLetter(s.front())) return false;
  for (const char c : s) {
    if (!IsLetter(c) && !IsDigit(c) && c != '.' && c != '_') return false;
  }
  return true;
}

bool IsIdentifier(std::string_view s) {
  if (s.empty() || s.size() > kMaxClassNameLength || IsDigit(s.front())) return false;
  for (const char c : s) {
    if (!IsLetter(c) && !IsDigit(c) && c != '_') return false;
  }
  return true;
}

bool IsLibraryPath(std::string_view s) {
  if (s.empty() || s.size() > kMaxLibraryLength || s.front() != '/') return false;
  for (const char c : s) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return false;
  }
  // Blanks at either end would not survive the trimming of values.
  return !IsBlank(s.back());
}

bool IsThreadingModel(std::string_view s) {
  for (const std::string_view model : kThreadingModels) {
    if (s == model) return true;
  }
  return false;
}

std::optional<uint16_t> ParseVersionPart(std::string_view s) {
  if (s.empty() || s.size() > 5) return std::nullopt;
  for (const char c : s) {
    if (!IsDigit(c)) return std::nullopt;
  }
  unsigned value = 0;
  std::from_chars(s.data(), s.data() + s.size(), value);
  if (value > UINT16_MAX) return std::nullopt;
  return static_cast<uint16_t>(value);
}

// The section being read: which keys it had, and where it started.
struct Section {
  RegistryEntry entry;
  std::array<bool, kKeyCount> seen{};
  size_t line = 0;
};

void SetValue(Section* section, Key key, std::string_view value, size_t line) {
  RegistryEntry& e = section->entry;
  switch (key) {
    case kClsid:
    case kTypelib: {
      const auto guid = ParseGuid(value);
      if (!guid) Fail(line, "not a braced GUID: '" + std::string(value) + "'");
      (key == kClsid ? e.classId : e.typeLibId) = *guid;
      return;
    }
    case kClass:
      if (!IsIdentifier(value)) Fail(line, "not a class name: '" + std::string(value) + "'");
      e.className = value;
      return;
    case kLibrary:
      if (!IsLibraryPath(value)) Fail(line, "not an absolute path: '" + std::string(value) + "'");
      e.library = value;
      return;
    case kThreading:
      if (!IsThreadingModel(value)) {
        Fail(line,
             "threading model not Apartment, Free, Both or Neutral: '" + std::string(value) + "'");
      }
      e.threadingModel = value;
      return;
    case kVersion: {
      const size_t dot = value.find('.');
      const auto major = ParseVersionPart(value.substr(0, dot));
      const auto minor =
          dot == std::string_view::npos ? std::nullopt : ParseVersionPart(value.substr(dot + 1));
      if (!major || !minor) Fail(line, "not a major.minor version: '" + std::string(value) + "'");
      e.typeLibMajor = *major;
      e.typeLibMinor = *minor;
      return;
    }
    case kKeyCount:
      break;
  }
}

void ReadKeyLine(Section* section, std::string_view text, size_t line) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos) Fail(line, "expected 'key = value'");
  const std::string_view name = Trim(text.substr(0, equals));
  const std::string_view value = Trim(text.substr(equals + 1));
  for (size_t k = 0; k < kKeyCount; ++k) {
    if (name != kKeyNames[k]) continue;
    if (section->seen[k]) Fail(line, "'" + std::string(name) + "' given twice");
    section->seen[k] = true;
    SetValue(section, static_cast<Key>(k), value, line);
    return;
  }
  Fail(line, "unknown key '" + std::string(name) + "'");
}

void CheckUnique(const std::vector<RegistryEntry>& entries, const RegistryEntry& e, size_t line) {
  for (const RegistryEntry& other : entries) {
    if (RegistryText::SameProgId(other.progId, e.progId)) {
      Fail(line, "program id '" + e.progId + "' registered twice");
    }
    if (IsEqualGUID(&other.classId, &e.classId)) {
      Fail(line, "class id " + FormatGuid(e.classId) + " registered twice");
    }
  }
}

void FinishSection(std::vector<RegistryEntry>* entries, const Section& section) {
  for (size_t k = 0; k < kKeyCount; ++k) {
    if (!section.seen[k]) {
      Fail(section.line,
           "[" + section.entry.progId + "] has no '" + std::string(kKeyNames[k]) + "'");
    }
  }
  CheckUnique(*entries, section.entry, section.line);
  entries->push_back(section.entry);
}

std::string_view NextLine(std::string_view* rest) {
  const size_t end = rest->find('\n');
  const std::string_view line = rest->substr(0, end);
  rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
  return line;
}

}  // namespace

bool RegistryText::SameProgId(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::vector<RegistryEntry> RegistryText::Parse(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) Fail(0, "contains a NUL byte");
  std::vector<RegistryEntry> entries;
  std::optional<Section> section;
  bool marked = false;
  size_t number = 0;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = Trim(NextLine(&rest));
    ++number;
    if (line.empty() || line.front() == '#') continue;
    if (!marked) {
      if (line != kMarker) Fail(number, "expected '" + std::string(kMarker) + "'");
      marked = true;
    } else if (line.front() == '[') {
      if (line.back() != ']') Fail(number, "expected '[program id]'");
      const std::string_view progId = Trim(line.substr(1, line.size() - 2));
      if (!IsProgId(progId)) Fail(number, "not a program id: '" + std::string(progId) + "'");
      if (section) FinishSection(&entries, *section);
      section.emplace();
      section->entry.progId = progId;
      section->line = number;
    } else if (!section) {
      Fail(number, "a key outside any [program id] section");
    } else {
      ReadKeyLine(&*section, line, number);
    }
  }
  if (!marked) Fail(0, "not a registry file (no '" + std::string(kMarker) + "' line)");
  if (section) FinishSection(&entries, *section);
  return entries;
}

void RegistryText::Check(const RegistryEntry& e) {
  if (!IsProgId(e.progId)) throw std::invalid_argument("not a program id: '" + e.progId + "'");
  if (!IsIdentifier(e.className)) {
    throw std::invalid_argument("not a class name: '" + e.className + "'");
  }
  if (!IsLibraryPath(e.library)) {
    throw std::invalid_argument("not an absolute library path: '" + e.library + "'");
  }
  if (!IsThreadingModel(e.threadingModel)) {
    throw std::invalid_argument("not a threading model: '" + e.threadingModel + "'");
  }
}

std::string RegistryText::Format(const std::vector<RegistryEntry>& entries) {
  std::string out =
      "# QUIV class registry: program ids and class ids of automation classes and the libraries\n"
      "# that serve them. Written by DllRegisterServer; edit with care, one section per class.\n";
  out += kMarker;
  out += '\n';
  for (const RegistryEntry& e : entries) {
    out += "\n[" + e.progId + "]\n";
    out += "clsid = " + FormatGuid(e.classId) + "\n";
    out += "class = " + e.className + "\n";
    out += "library = " + e.library + "\n";
    out += "threading = " + e.threadingModel + "\n";
    out += "typelib = " + FormatGuid(e.typeLibId) + "\n";
    out +=
        "version = " + std::to_string(e.typeLibMajor) + "." + std::to_string(e.typeLibMinor) + "\n";
  }
  return out;
}

}  // namespace quiv::server
