// RegistryError: a registry file that cannot be read, parsed or written. what() names the file
// (and the line, for a damaged file) and says what is wrong; hresult() is the code an entry point
// reports for it (REGDB_E_READREGDB for reading and parsing, REGDB_E_WRITEREGDB for writing,
// E_INVALIDARG for entries a caller asked to register that are not valid).
#ifndef QUIV_SERVER_REGISTRYERROR_H
#define QUIV_SERVER_REGISTRYERROR_H

#include <stdexcept>
#include <string>

#include "server/quiv_com.h"

namespace quiv::server {

class RegistryError final : public std::runtime_error {
 public:
  RegistryError(HRESULT hresult, const std::string& message)
      : std::runtime_error(message), m_hresult(hresult) {}

  HRESULT hresult() const { return m_hresult; }

 private:
  HRESULT m_hresult;
};

}  // namespace quiv::server

#endif
