// ErrObject: the run time's error object (Err): the number, source, description and last
// platform error of the most recent error, readable and writable, with Clear and Raise.
// A method's trap loads the RuntimeError it caught into one (Load / FromException) and hands it
// to the error record. Raise throws; the object itself keeps the raised values too.
#ifndef QUIV_AUTOMATION_ERROBJECT_H
#define QUIV_AUTOMATION_ERROBJECT_H

#include <cstdint>
#include <utility>

#include "automation/RuntimeError.h"
#include "automation/String.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API ErrObject final {
 public:
  ErrObject() = default;
  static ErrObject FromException(const RuntimeError& error);

  int32_t Number() const { return m_number; }
  const String& Source() const { return m_source; }
  const String& Description() const { return m_description; }
  uint32_t LastDllError() const { return m_lastDllError; }
  void SetNumber(int32_t number) { m_number = number; }
  void SetSource(String source) { m_source = std::move(source); }
  void SetDescription(String description) { m_description = std::move(description); }
  void SetLastDllError(uint32_t code) { m_lastDllError = code; }

  // Number 0, empty source and description, last platform error 0.
  void Clear();
  // Takes all four values of the exception.
  void Load(const RuntimeError& error);
  // Stores the values and throws them as a RuntimeError. An empty source becomes "QUIV"; an
  // empty description becomes the run time's text for the number. The last platform error is
  // read from the platform at the time of the raise.
  [[noreturn]] void Raise(int32_t number, String source = String(), String description = String());
  // The current values as an exception (for rethrowing to a caller).
  RuntimeError ToException() const;

 private:
  int32_t m_number = 0;
  String m_source;
  String m_description;
  uint32_t m_lastDllError = 0;
};

}  // namespace quiv

#endif
