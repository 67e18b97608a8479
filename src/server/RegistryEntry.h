// One class as the registry file records it: what a create-by-program-id call needs to find and
// load the class, and the type library that describes it.
#ifndef QUIV_SERVER_REGISTRYENTRY_H
#define QUIV_SERVER_REGISTRYENTRY_H

#include <cstdint>
#include <string>

#include "server/quiv_com.h"

namespace quiv::server {

struct RegistryEntry {
  std::string progId;          // "QUIV.CProvider": letters, digits, '.', '_'; 1..39 characters
  GUID classId{};              // the class identifier
  std::string className;       // "CProvider"
  std::string library;         // absolute path of the shared library that serves the class
  std::string threadingModel;  // "Apartment", "Free", "Both" or "Neutral"
  GUID typeLibId{};            // the type library that describes the class
  uint16_t typeLibMajor = 0;
  uint16_t typeLibMinor = 0;

  friend bool operator==(const RegistryEntry& a, const RegistryEntry& b) {
    return a.progId == b.progId && IsEqualGUID(&a.classId, &b.classId) &&
           a.className == b.className && a.library == b.library &&
           a.threadingModel == b.threadingModel && IsEqualGUID(&a.typeLibId, &b.typeLibId) &&
           a.typeLibMajor == b.typeLibMajor && a.typeLibMinor == b.typeLibMinor;
  }
};

}  // namespace quiv::server

#endif
