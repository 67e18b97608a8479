// OpenSSL stays inside the platform: no source outside src/platform includes an OpenSSL
// header, directly or through a platform header that does. The exceptions are the code that
// tests or measures the platform against OpenSSL itself: tests/platform (interop oracles),
// fuzz (the platform's fuzzers) and bench (ratios against OpenSSL's EVP on the same bytes), and
// the single file named in kOracleFiles.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

fs::path SourceRoot() {
  return fs::path(QUIV_TEST_DATA_DIR).parent_path();  // QUIV_TEST_DATA_DIR is <root>/tests
}

bool IsSource(const fs::path& path) {
  static const std::set<std::string> kExtensions = {".h",   ".hpp", ".hh",  ".c",   ".cc",
                                                    ".cpp", ".cxx", ".inc", ".def", ".ipp"};
  return kExtensions.count(path.extension().string()) != 0;
}

// Files outside those folders that may include OpenSSL, each by its full path.
// CRSAKeyPairDecoderTest: an oracle test of the key pair object, which needs OpenSSL's own
// MSBLOB decoder and encoder in the same process as the object.
const std::set<std::string> kOracleFiles = {"tests/signing/CRSAKeyPairDecoderTest.cpp"};

bool Allowed(const std::string& relative) {
  for (const char* prefix : {"src/platform/", "tests/platform/", "fuzz/", "bench/"}) {
    if (relative.rfind(prefix, 0) == 0) return true;
  }
  return kOracleFiles.count(relative) != 0;
}

// Every source file of the tree (build folders and version control excluded), relative path
// -> its #include targets.
std::map<std::string, std::vector<std::string>> Includes() {
  static const std::regex kInclude(R"(^\s*#\s*include\s*[<"]([^>"]+)[>"])");
  std::map<std::string, std::vector<std::string>> includes;
  const fs::path root = SourceRoot();
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator();
       ++it) {
    const std::string name = it->path().filename().string();
    if (it->is_directory() && (name == "build" || name.rfind(".", 0) == 0)) {
      it.disable_recursion_pending();
      continue;
    }
    if (!it->is_regular_file() || !IsSource(it->path())) continue;
    const std::string relative = fs::relative(it->path(), root).generic_string();
    std::ifstream in(it->path());
    std::vector<std::string>& targets = includes[relative];
    for (std::string line; std::getline(in, line);) {
      std::smatch match;
      if (std::regex_search(line, match, kInclude)) targets.push_back(match[1]);
    }
  }
  return includes;
}

bool IsOpenssl(const std::string& target) {
  return target.rfind("openssl/", 0) == 0;
}

TEST(NoOpensslOutsideTest, TheScanSeesTheTree) {
  const auto includes = Includes();
  // The platform does use OpenSSL: if the scan finds none, it is not reading the tree.
  ASSERT_TRUE(includes.count("src/platform/Ossl.h"));
  bool found = false;
  for (const std::string& target : includes.at("src/platform/Ossl.h")) found |= IsOpenssl(target);
  EXPECT_TRUE(found);
}

// An exception outlives its reason when the file goes or stops using OpenSSL: then it must go.
TEST(NoOpensslOutsideTest, EveryNamedExceptionStillIncludesOpenssl) {
  const auto includes = Includes();
  for (const std::string& file : kOracleFiles) {
    ASSERT_TRUE(includes.count(file)) << file << " is gone";
    const std::vector<std::string>& targets = includes.at(file);
    EXPECT_TRUE(std::any_of(targets.begin(), targets.end(), IsOpenssl))
        << file << " no longer includes OpenSSL";
  }
}

TEST(NoOpensslOutsideTest, NoFileOutsideThePlatformIncludesOpenssl) {
  for (const auto& [file, targets] : Includes()) {
    if (Allowed(file)) continue;
    for (const std::string& target : targets) {
      EXPECT_FALSE(IsOpenssl(target)) << file << " includes <" << target << ">";
    }
  }
}

TEST(NoOpensslOutsideTest, NoFileOutsideThePlatformIncludesAPlatformHeaderThatPullsOpenssl) {
  const auto includes = Includes();
  // Platform headers that reach OpenSSL, directly or through other platform headers.
  std::set<std::string> tainted;
  for (bool grew = true; grew;) {
    grew = false;
    for (const auto& [file, targets] : includes) {
      if (file.rfind("src/platform/", 0) != 0 || tainted.count(file)) continue;
      for (const std::string& target : targets) {
        if (IsOpenssl(target) || tainted.count("src/" + target)) {
          grew = tainted.insert(file).second || grew;
          break;
        }
      }
    }
  }
  for (const auto& [file, targets] : includes) {
    if (Allowed(file)) continue;
    for (const std::string& target : targets) {
      EXPECT_FALSE(tainted.count("src/" + target))
          << file << " includes " << target << ", which includes an OpenSSL header";
    }
  }
}

}  // namespace
