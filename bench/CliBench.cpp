// Throughput of the quiv command against the openssl command on the same file with the same
// cipher and key, in the same run: quiv enc (RC4, 3DES, RC2) against openssl enc given the key
// quiv derives (quiv enc -P), and quiv dgst (MD5, SHA-1) against openssl dgst. Both are whole
// processes reading the file and writing to /dev/null, timed alternately (PairTimer). The file
// is QUIV_CLI_BENCH_MIB MiB of random bytes (default 256; 1024 for the release figures) in
// $TMPDIR, removed at the end; the slow block ciphers (3DES, RC2: tens of MB/s) run on an eighth
// of it, so a run stays within minutes. The ratio is quiv's rate over openssl's (aim 0.9). On a
// loaded machine the wall-clock table moves with the load; the processor time each side used (user
// + system, from wait4) is printed too, as the steadier comparison.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "PairTimer.h"
#include "RatioReporter.h"

extern char** environ;

namespace {

// The least processor time (user + system seconds) one run of each command line took.
std::map<std::string, double> g_bestCpu;

std::string Line(const std::vector<std::string>& argv) {
  std::string line;
  for (const std::string& a : argv) line += a + " ";
  return line;
}

// Runs the program with its standard output to /dev/null (or captured when `out` is given).
void Run(const std::vector<std::string>& argv, std::string* out = nullptr) {
  int pipeFds[2] = {-1, -1};
  if (out != nullptr && ::pipe(pipeFds) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (out != nullptr) {
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  }
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::runtime_error("cannot start " + argv[0]);
  if (out != nullptr) {
    ::close(pipeFds[1]);
    char buffer[4096];
    for (ssize_t got; (got = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;)
      out->append(buffer, got);
    ::close(pipeFds[0]);
  }
  int status = 0;
  struct rusage usage {};
  ::wait4(pid, &status, 0, &usage);
  const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                     static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  const auto [it, fresh] = g_bestCpu.emplace(Line(argv), cpu);
  if (!fresh && cpu < it->second) it->second = cpu;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(argv[0] + " failed");
}

std::string MakeFile(size_t mib) {
  const char* tmp = std::getenv("TMPDIR");
  std::string path = std::string(tmp != nullptr ? tmp : "/tmp") + "/quiv-cli-bench-XXXXXX";
  const int fd = ::mkstemp(path.data());
  if (fd < 0) throw std::runtime_error("cannot make the input file");
  std::mt19937_64 rng(11);
  std::vector<uint64_t> block(1 << 17);  // 1 MiB
  for (size_t i = 0; i < mib; ++i) {
    for (auto& word : block) word = rng();
    if (::write(fd, block.data(), 1 << 20) != (1 << 20)) throw std::runtime_error("write");
  }
  ::close(fd);
  return path;
}

struct CpuPair {
  std::string name;
  std::string ours;
  std::string openssl;
};
std::vector<CpuPair> g_pairs;

std::string KeyOf(const std::string& quiv, const std::string& alg) {
  std::string out;
  Run({quiv, "enc", "-alg", alg, "-pass", "pass:benchmark phrase", "-P"}, &out);
  return out.substr(4, out.find('\n') - 4);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const char* sizeText = std::getenv("QUIV_CLI_BENCH_MIB");
  const size_t mib = sizeText != nullptr ? std::strtoul(sizeText, nullptr, 10) : 256;
  const std::string quiv = QUIV_CLI_PATH;
  const std::string file = MakeFile(mib);
  const size_t slowMib = mib / 8 > 0 ? mib / 8 : 1;
  const std::string slowFile = MakeFile(slowMib);
  const double bytes = static_cast<double>(mib) * (1 << 20);
  quiv::bench::RatioReporter reporter("openssl");
  const int samples = 3;

  struct Cipher {
    const char* alg;
    const char* openssl;
    bool slow;
  };
  for (const Cipher& c : {Cipher{"rc4", "-rc4", false}, Cipher{"3des", "-des-ede3-cbc", true},
                          Cipher{"rc2", "-rc2-cbc", true}}) {
    const std::string& input = c.slow ? slowFile : file;
    const size_t size = c.slow ? slowMib : mib;
    const std::string key = KeyOf(quiv, c.alg);
    std::vector<std::string> ossl = {"openssl", "enc",       c.openssl, "-provider",
                                     "legacy",  "-provider", "default", "-K",
                                     key,       "-in",       input};
    if (c.slow) ossl.insert(ossl.end(), {"-iv", "0000000000000000"});
    const std::vector<std::string> ours = {
        quiv, "enc", "-alg", c.alg, "-pass", "pass:benchmark phrase", "-in", input};
    g_pairs.push_back({std::string("enc ") + c.alg + " " + std::to_string(size) + " MiB",
                       Line(ours), Line(ossl)});
    quiv::bench::RegisterPair(reporter,
                              {std::string("enc ") + c.alg + " " + std::to_string(size) + " MiB",
                               true, static_cast<double>(size) * (1 << 20), 0.9},
                              samples, {[ours] { Run(ours); }, {}}, {[ossl] { Run(ossl); }, {}}, 0);
  }
  for (const char* md : {"md5", "sha1"}) {
    const std::vector<std::string> ours = {quiv, "dgst", std::string("-") + md, file};
    const std::vector<std::string> ossl = {"openssl", "dgst", std::string("-") + md, file};
    g_pairs.push_back(
        {std::string("dgst ") + md + " " + std::to_string(mib) + " MiB", Line(ours), Line(ossl)});
    quiv::bench::RegisterPair(
        reporter,
        {std::string("dgst ") + md + " " + std::to_string(mib) + " MiB", true, bytes, 0.9}, samples,
        {[ours] { Run(ours); }, {}}, {[ossl] { Run(ossl); }, {}}, 0);
  }
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const int below = reporter.PrintTable(stdout);
  std::printf(
      "\nratio = quiv rate / openssl rate (whole processes, file in the page cache); "
      "%d case(s) below the aim\n",
      below);
  std::printf("\nprocessor time (user + system), best run of each:\n\n");
  std::printf("| case | quiv s | openssl s | ratio |\n|---|---|---|---|\n");
  for (const CpuPair& pair : g_pairs) {
    const double ours = g_bestCpu[pair.ours];
    const double theirs = g_bestCpu[pair.openssl];
    std::printf("| %s | %.2f | %.2f | %.2f |\n", pair.name.c_str(), ours, theirs,
                ours > 0 ? theirs / ours : 0.0);
  }
  ::unlink(file.c_str());
  ::unlink(slowFile.c_str());
  benchmark::Shutdown();
  return 0;
}
