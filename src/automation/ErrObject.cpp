#include "automation/ErrObject.h"

#include "automation/RunTime.h"

namespace quiv {

ErrObject ErrObject::FromException(const RuntimeError& error) {
  ErrObject err;
  err.Load(error);
  return err;
}

void ErrObject::Clear() {
  *this = ErrObject();
}

void ErrObject::Load(const RuntimeError& error) {
  m_number = error.Number();
  m_source = error.Source();
  m_description = error.Description();
  m_lastDllError = error.LastDllError();
}

void ErrObject::Raise(int32_t number, String source, String description) {
  m_number = number;
  m_source = source.IsEmpty() ? String(kRuntimeSource) : std::move(source);
  m_description = description.IsEmpty() ? RuntimeDescription(number) : std::move(description);
  m_lastDllError = LastPlatformError();
  throw ToException();
}

RuntimeError ErrObject::ToException() const {
  return RuntimeError(m_number, m_source, m_description, m_lastDllError);
}

}  // namespace quiv
