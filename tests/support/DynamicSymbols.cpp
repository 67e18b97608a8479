#include "support/DynamicSymbols.h"

#include <cstdio>
#include <memory>
#include <sstream>

namespace quiv::test {

std::map<std::string, char> DynamicSymbols(const std::filesystem::path& library) {
  std::map<std::string, char> symbols;
  const std::string command = "nm -D --defined-only '" + library.string() + "' 2>/dev/null";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) return symbols;
  char line[4096];
  while (std::fgets(line, sizeof line, pipe.get()) != nullptr) {
    std::istringstream fields(line);
    std::string address;
    std::string type;
    std::string name;
    if (fields >> address >> type >> name) {
      symbols[name.substr(0, name.find('@'))] = type[0];
    }
  }
  return symbols;
}

}  // namespace quiv::test
