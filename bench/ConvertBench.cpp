// Hex conversion throughput: 64 MiB of message text unloaded to hex text and loaded back
// through CMessagetext (UnloadMessageText/LoadMessageText in STRING_HEX, which go through
// CConvert), against a plain table-driven hex loop over the same bytes in the same process. The
// table at the end gives the ratio of the message text's rate to the loop's (1.0: as fast as the
// loop; the aim is 0.8 or more).
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "PairTimer.h"
#include "RatioReporter.h"
#include "automation/ByteArray.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "data/CMessagetext.h"

namespace {

constexpr size_t kBytes = size_t{64} << 20;

const std::vector<uint8_t>& Data() {
  static const std::vector<uint8_t> data = [] {
    std::vector<uint8_t> bytes(kBytes);
    std::mt19937_64 rng(7);
    for (auto& b : bytes) b = static_cast<uint8_t>(rng());
    return bytes;
  }();
  return data;
}

// The reference loop: one table for the digits, one for their values.
constexpr char16_t kDigits[] = u"0123456789ABCDEF";

constexpr std::array<int8_t, 256> MakeValues() {
  std::array<int8_t, 256> values{};
  for (auto& v : values) v = -1;
  for (int i = 0; i < 16; ++i) values[static_cast<size_t>(kDigits[i])] = static_cast<int8_t>(i);
  return values;
}
constexpr std::array<int8_t, 256> kValues = MakeValues();

std::u16string PlainEncode(const std::vector<uint8_t>& bytes) {
  std::u16string text(bytes.size() * 2, u'\0');
  for (size_t i = 0; i < bytes.size(); ++i) {
    text[2 * i] = kDigits[bytes[i] >> 4];
    text[2 * i + 1] = kDigits[bytes[i] & 0x0F];
  }
  return text;
}

// Like the converter, each pass makes its outputs anew (text and bytes), so both sides pay the
// same allocations and the ratio measures the conversion itself.
bool PlainDecode(const std::u16string& text, std::vector<uint8_t>& bytes) {
  bytes = std::vector<uint8_t>(text.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    const char16_t h = text[2 * i];
    const char16_t l = text[2 * i + 1];
    if (h > 0xFF || l > 0xFF) return false;
    const int hv = kValues[h];
    const int lv = kValues[l];
    if ((hv | lv) < 0) return false;
    bytes[i] = static_cast<uint8_t>(hv * 16 + lv);
  }
  return true;
}

constexpr int kSamples = 8;

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  quiv::bench::RatioReporter reporter("plain loop");
  const std::vector<uint8_t>& data = Data();
  const quiv::Ref<quiv::CMessagetext> message = quiv::MakeRef<quiv::CMessagetext>();
  std::vector<uint8_t> back;

  // Both sides must give the same text and the same bytes back before anything is timed.
  quiv::String text;
  if (!message->SetMessageText(quiv::ByteArray(data)) ||
      !message->UnloadMessageText(text, quiv::STRING_HEX) || text.u16() != PlainEncode(data) ||
      !PlainDecode(text.u16(), back) || back != data) {
    std::fprintf(stderr, "quiv_bench_convert: the two sides disagree\n");
    return 1;
  }

  quiv::bench::RegisterPair(
      reporter, {"hex unload+load 64 MiB", true, static_cast<double>(kBytes), 0.8}, kSamples,
      {[&message] {
         quiv::String hex;
         if (!message->UnloadMessageText(hex, quiv::STRING_HEX) ||
             !message->LoadMessageText(hex, quiv::STRING_HEX)) {
           throw std::runtime_error("conversion failed");
         }
       },
       {}},
      {[&data, &back] {
         const std::u16string hex = PlainEncode(data);
         if (!PlainDecode(hex, back)) throw std::runtime_error("decode failed");
         benchmark::DoNotOptimize(back.data());
       },
       {}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const int below = reporter.PrintTable(stdout);
  std::printf("\nratio = CMessagetext rate / plain loop rate; %d case(s) below the aim\n", below);
  benchmark::Shutdown();
  return 0;
}
