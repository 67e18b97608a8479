#include "PassPhrase.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "HexText.h"
#include "InputStream.h"
#include "UsageError.h"

namespace quiv::cli {

namespace {

std::string FirstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

// One byte at a time, so that nothing after the line is taken from the data that follows it.
std::string LineFromStdin() {
  std::string line;
  char c = 0;
  for (;;) {
    const ssize_t got = ::read(0, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0 || c == '\n') break;
    line.push_back(c);
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::string Resolve(const std::string& source) {
  if (source.rfind("pass:", 0) == 0) return source.substr(5);
  if (source.rfind("env:", 0) == 0) {
    const char* value = std::getenv(source.substr(4).c_str());
    if (value == nullptr)
      throw CommandFailure("environment variable " + source.substr(4) + " is not set");
    return value;
  }
  if (source.rfind("file:", 0) == 0) {
    const std::vector<uint8_t> bytes = ReadSmallFile(source.substr(5), "pass phrase file");
    return FirstLine(std::string(bytes.begin(), bytes.end()));
  }
  if (source == "stdin") return LineFromStdin();
  throw UsageError("-pass must be pass:TEXT, env:VAR, file:PATH or stdin");
}

}  // namespace

PassPhrase::PassPhrase(const std::string& source, const std::string& form)
    : m_utf8(Resolve(source)) {
  if (form == "hex") {
    const std::optional<std::vector<uint8_t>> bytes = HexText::Decode(m_utf8);
    if (!bytes || bytes->size() % 2 != 0) {
      throw UsageError(
          "a hex pass phrase needs an even number of hex digits (two bytes a character)");
    }
    m_phrase = String::FromBytes(*bytes);
  } else {
    m_phrase = String::FromUtf8(m_utf8);
  }
  if (m_phrase.Trim().IsEmpty()) {
    throw UsageError("the pass phrase is empty or blank; it would not derive a key");
  }
}

PassPhrase::~PassPhrase() {
  // The phrase's copies in the library's strings are out of reach; this one at least goes.
  std::fill(m_utf8.begin(), m_utf8.end(), '\0');
}

}  // namespace quiv::cli
