// RuntimeError: what a raise throws. Inside a public method a failure is raised as a C++
// exception carrying the four items of the run time's error object (number, source,
// description, the last platform error); the method's trap catches it and loads the error
// record from it (ErrObject). Raise it through the helpers of RunTime.h or ErrObject::Raise.
//
// A RuntimeError is a value (copyable, as exceptions must be).
#ifndef QUIV_AUTOMATION_RUNTIMEERROR_H
#define QUIV_AUTOMATION_RUNTIMEERROR_H

#include <cstdint>
#include <exception>
#include <string>

#include "automation/String.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API RuntimeError final : public std::exception {
 public:
  RuntimeError(int32_t number, String source, String description, uint32_t lastDllError);

  int32_t Number() const { return m_number; }
  const String& Source() const { return m_source; }
  const String& Description() const { return m_description; }
  // The calling thread's last platform error when the error was raised.
  uint32_t LastDllError() const { return m_lastDllError; }

  // "<number>: <description> (<source>)" in UTF-8, for diagnostics.
  const char* what() const noexcept override { return m_what.c_str(); }

 private:
  int32_t m_number;
  String m_source;
  String m_description;
  uint32_t m_lastDllError;
  std::string m_what;
};

}  // namespace quiv

#endif
