#include "platform/UserHome.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace quiv::platform {

std::optional<std::string> UserHome() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] != '\0') {
    return std::string(home);
  }
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] != '\0') {
    return std::string(found->pw_dir);
  }
  return std::nullopt;
}

}  // namespace quiv::platform
