#include "support/OpensslEnc.h"

#include <gtest/gtest.h>
#include <stdlib.h>  // mkdtemp
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace quiv::test {
namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<uint8_t>;

// A private folder for one run's input, output and messages; removed with everything in it.
class ScratchFolder final {
 public:
  ScratchFolder() {
    std::string pattern = (fs::temp_directory_path() / "quiv_openssl_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary folder for openssl");
    }
    m_path = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string File(const char* name) const { return (m_path / name).string(); }

 private:
  fs::path m_path;
};

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Single quotes keep every argument literal to the shell, whatever a test passes.
std::string Quoted(const std::string& word) {
  std::string out = "'";
  for (const char c : word) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

// `openssl <arguments> -out <output> <inputFlag> <input>`, every word quoted. enc names its
// input with -in; dgst takes it as the last word (an empty inputFlag).
std::string CommandLine(const std::vector<std::string>& arguments, const std::string& inputFlag,
                        const ScratchFolder& scratch) {
  std::string command = "openssl";
  for (const std::string& argument : arguments) command += " " + Quoted(argument);
  command += " -out " + Quoted(scratch.File("out"));
  if (!inputFlag.empty()) command += " " + inputFlag;
  return command + " " + Quoted(scratch.File("in"));
}

// Runs openssl on the input and returns what it wrote, or fails the test (see the header).
Bytes RunOpenssl(const std::vector<std::string>& arguments, const std::string& inputFlag,
                 const Bytes& input) {
  if (!OpensslOnPath()) {
    ADD_FAILURE() << "openssl is not on PATH; scripts/install-deps.sh installs it";
    return {};
  }
  const ScratchFolder scratch;
  WriteFile(scratch.File("in"), input);
  const std::string command = CommandLine(arguments, inputFlag, scratch);
  const int status = std::system((command + " 2>" + Quoted(scratch.File("err"))).c_str());
  const Bytes messages = ReadFile(scratch.File("err"));
  const bool succeeded = status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!succeeded || !messages.empty()) {
    ADD_FAILURE() << command << "\nexit status " << status << ", printed:\n"
                  << std::string(messages.begin(), messages.end());
    return {};
  }
  return ReadFile(scratch.File("out"));
}

}  // namespace

Bytes OpensslEnc(const std::string& cipher, const std::string& keyHex, const std::string& ivHex,
                 const Bytes& input, EncOptions options) {
  std::vector<std::string> arguments = {"enc", options.decrypt ? "-d" : "-e", "-" + cipher};
  arguments.insert(arguments.end(), {"-K", keyHex, "-nosalt"});
  // OpenSSL 3 keeps RC2, RC4 and single DES in its legacy provider.
  arguments.insert(arguments.end(), {"-provider", "legacy", "-provider", "default"});
  if (!ivHex.empty()) arguments.insert(arguments.end(), {"-iv", ivHex});
  if (!options.pad) arguments.emplace_back("-nopad");
  return RunOpenssl(arguments, "-in", input);
}

Bytes OpensslDigest(const std::string& digest, const Bytes& input) {
  return RunOpenssl({"dgst", "-" + digest, "-binary"}, "", input);
}

bool OpensslOnPath() {
  static const bool found = std::system("command -v openssl >/dev/null 2>&1") == 0;
  return found;
}

}  // namespace quiv::test
