// quiv rand, quiv algs, quiv errstr: random bytes, the provider's algorithm catalogue, and the
// names of error codes as an error record shows them.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "Command.h"
#include "DataWriter.h"
#include "Options.h"
#include "OutputFile.h"
#include "Session.h"
#include "errors/CErrAPI.h"
#include "errors/CErrQUIV.h"

namespace quiv::cli {

namespace {

int RunRand(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"out", "provider"};
  grammar.m_flags = {"hex"};
  grammar.m_maxPositional = 1;
  const Options options(grammar, args);
  if (options.Positional().empty()) throw UsageError("how many bytes? (quiv rand N)");
  long left = ParseNumber(options.Positional()[0], 0, 1L << 40, "N");
  Session session(options);
  session.OpenVerifyContext();
  Ref<CSessionKey> key = session.SessionKey();
  OutputFile output(options.Value("out"));
  DataWriter writer(output, options.Has("hex"));
  while (left > 0) {
    const long size = left < 65536 ? left : 65536;
    ByteArray bytes(std::vector<uint8_t>(static_cast<size_t>(size)));
    if (!key->GetRandomBytes(bytes)) Fail(key, "no random bytes");
    writer.Write(bytes.span());
    left -= size;
  }
  writer.Finish();
  return 0;
}

int32_t AlgorithmClass(const std::string& name) {
  if (name == "symmetric") return SYMMETRIC_CIPHERS;
  if (name == "hash") return HASHES;
  if (name == "signature") return SIGNATURE_CIPHERS;
  if (name == "exchange") return KEY_EXCHANGE_CIPHERS;
  return ALL_ALGORITHMS;
}

int RunAlgs(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"class", "provider"};
  const Options options(grammar, args);
  const std::string filter =
      options.Choice("class", {"all", "symmetric", "hash", "signature", "exchange"}, "all");
  Session session(options);
  session.OpenVerifyContext();
  Ref<CAlgInfo> info = MakeRef<CAlgInfo>();
  if (!session.Provider()->GetListOfAlgorithms(info)) Fail(session.Provider(), "no catalogue");
  if (!info->FilterAlgorithms(AlgorithmClass(filter))) Fail(info, "cannot filter");
  std::printf("%-18s %-6s %7s %7s %7s  %-12s %s\n", "code", "id", "default", "min", "max", "name",
              "long name");
  for (info->MoveFirst(); !info->Eof(); info->MoveNext()) {
    if (info->AlgorithmID() == 0) continue;  // the one empty record of a filter without a match
    std::printf("%-18s 0x%04X %7d %7d %7.0f  %-12s %s\n", info->AlgorithmCode().ToUtf8().c_str(),
                static_cast<unsigned>(info->AlgorithmID()), info->DefaultLength(),
                info->MinLength(), info->MaxLength(), info->ShortAlgorithmName().ToUtf8().c_str(),
                info->LongAlgorithmName().ToUtf8().c_str());
  }
  return 0;
}

// Decimal (signed or unsigned 32-bit) or hex with 0x or &H in front.
int32_t ParseCode(const std::string& text) {
  std::string digits = text;
  int base = 10;
  if (digits.rfind("0x", 0) == 0 || digits.rfind("0X", 0) == 0 || digits.rfind("&H", 0) == 0 ||
      digits.rfind("&h", 0) == 0) {
    digits = digits.substr(2);
    base = 16;
  }
  errno = 0;
  char* end = nullptr;
  const long long value = std::strtoll(digits.c_str(), &end, base);
  if (digits.empty() || *end != '\0' || errno == ERANGE || value < INT32_MIN ||
      value > static_cast<long long>(UINT32_MAX)) {
    throw UsageError("CODE must be a 32-bit number, decimal or hex (0x80090005, &H80090005)");
  }
  return static_cast<int32_t>(static_cast<uint32_t>(value));
}

int RunErrstr(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_maxPositional = 16;
  const Options options(grammar, args);
  if (options.Positional().empty()) throw UsageError("which code? (quiv errstr CODE)");
  int status = 0;
  for (const std::string& text : options.Positional()) {
    const int32_t code = ParseCode(text);
    std::printf("0x%08X (%d) ", static_cast<uint32_t>(code), code);
    if (!CErrQUIV::Name(code).empty()) {
      std::printf("QUIV error: %s\n", CErrQUIV().LastError(code).ToUtf8().c_str());
      continue;
    }
    const std::string name = CErrAPI().LastError(static_cast<double>(code)).Trim().ToUtf8();
    std::printf("API error=%s\n", name.c_str());
    if (name.rfind("&H", 0) == 0) status = 1;  // no name for it
  }
  return status;
}

}  // namespace

const Command kRandCommand = {
    "rand", "random bytes from the provider",
    "usage: quiv rand [-hex] [-out FILE] N\n"
    "Writes N random bytes from the provider's generator.\n"
    "\n"
    "  -hex       as upper-case hex text\n"
    "  -out FILE  write there, only on success (default: standard output)\n"
    "\n"
    "example:\n"
    "  quiv rand -hex 16\n",
    RunRand};

const Command kAlgsCommand = {
    "algs", "the provider's algorithm catalogue",
    "usage: quiv algs [-class all|symmetric|hash|signature|exchange] [-provider NAME]\n"
    "Lists the provider's algorithms with their default, smallest and largest key lengths in\n"
    "bits (base, enhanced (default) or strong).\n"
    "\n"
    "example:\n"
    "  quiv algs -provider base -class symmetric\n",
    RunAlgs};

const Command kErrstrCommand = {
    "errstr", "the name of a library or platform error code",
    "usage: quiv errstr CODE...\n"
    "Names each code as an error record shows it: a library code (0x80040200 and up) as its\n"
    "QUIV error text, any other as its platform error name (API error=...). CODE is decimal\n"
    "(signed or not) or hex with 0x or &H in front. Exit status 1 when a code has no name.\n"
    "\n"
    "example:\n"
    "  quiv errstr 0x80090005 -2147220922\n",
    RunErrstr};

}  // namespace quiv::cli
