// The effective user's home folder, for the per-user files of the XDG base directories: $HOME
// when set, else the passwd entry of the effective uid.
#ifndef QUIV_PLATFORM_USERHOME_H
#define QUIV_PLATFORM_USERHOME_H

#include <optional>
#include <string>

namespace quiv::platform {

// nullopt when neither $HOME nor a passwd entry with a home folder exists.
std::optional<std::string> UserHome();

}  // namespace quiv::platform

#endif
