// PassPhrase: the -pass argument, resolved to the phrase's text. The forms are those of the
// openssl tools: pass:TEXT (visible in the process list, for tests and throw-away data),
// env:VAR, file:PATH (the first line) and stdin (the first line of standard input; the data, if
// it also comes from standard input, starts after that line). A trailing "\n" or "\r\n" is not
// part of the phrase.
//
// -passform says how the text becomes the library's pass phrase string: "text" (the default)
// reads it as UTF-8 and gives its characters; "hex" reads hex digits as the string's own
// storage bytes, two per UTF-16 code unit, low byte first, for phrases that must be reproduced
// byte for byte whatever the terminal's character set.
#ifndef QUIV_TOOLS_QUIV_PASSPHRASE_H
#define QUIV_TOOLS_QUIV_PASSPHRASE_H

#include <string>

#include "automation/String.h"

namespace quiv::cli {

class PassPhrase final {
 public:
  // UsageError for an unknown form, an empty or all-blank phrase (the library would silently
  // make a random key from it) and a hex phrase of odd length or with other characters;
  // CommandFailure when the variable, file or stdin gives nothing.
  PassPhrase(const std::string& source, const std::string& form);
  ~PassPhrase();
  PassPhrase(const PassPhrase&) = delete;
  PassPhrase& operator=(const PassPhrase&) = delete;

  // The phrase as the session key takes it.
  const String& Phrase() const { return m_phrase; }
  // The phrase as UTF-8 text (for PKCS#8 encryption, which takes bytes).
  const std::string& Utf8() const { return m_utf8; }

 private:
  std::string m_utf8;
  String m_phrase;
};

}  // namespace quiv::cli

#endif
