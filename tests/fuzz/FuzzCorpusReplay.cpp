// Runs one fuzz target over every file of the folders (or files) named on the command line, the
// way libFuzzer replays a corpus, but without libFuzzer: the test build uses gcc, and its
// sanitizers and the target's own checks (which abort on a wrong answer) decide the outcome.
// Linked with one fuzz target's source for each corpus in fuzz/corpus.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<uint8_t> ReadAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

// The files to replay, in a fixed order so that a failure repeats the same way.
std::vector<std::filesystem::path> Inputs(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    if (!std::filesystem::is_directory(arg)) {
      files.push_back(arg);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(arg)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::filesystem::path> files = Inputs(argc, argv);
  if (files.empty()) {
    std::fprintf(stderr, "usage: %s CORPUS_DIR|FILE...  (found no input)\n", argv[0]);
    return 2;
  }
  for (const auto& file : files) {
    std::fprintf(stderr, "%s\n", file.filename().c_str());
    const std::vector<uint8_t> bytes = ReadAll(file);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("replayed %zu input(s)\n", files.size());
  return 0;
}
