// Hex conversion throughput: 64 MiB unloaded to hex text and loaded back through CConvert
// (STRING_HEX both ways), against a plain table-driven hex loop over the same bytes in the same
// process. After the runs it prints the ratio of the loop's time to the converter's (1.0: as
// fast as the loop; the target is 0.8 or more).
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "automation/ByteArray.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "data/CConvert.h"

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

void BM_PlainHexLoop(benchmark::State& state) {
  const std::vector<uint8_t>& data = Data();
  std::vector<uint8_t> back;
  for (auto _ : state) {
    std::u16string text = PlainEncode(data);
    if (!PlainDecode(text, back)) state.SkipWithError("decode failed");
    benchmark::DoNotOptimize(back.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

void BM_ConvertHex(benchmark::State& state) {
  const quiv::ByteArray data(Data());
  const quiv::Ref<quiv::CConvert> convert = quiv::MakeRef<quiv::CConvert>();
  quiv::ByteArray back;
  for (auto _ : state) {
    quiv::String text;
    if (!convert->UnloadItem(data, text, quiv::STRING_HEX, true) ||
        !convert->LoadItem(text, quiv::STRING_HEX, back)) {
      state.SkipWithError("conversion failed");
    }
    benchmark::DoNotOptimize(back.data());
  }
  if (!(back == data)) state.SkipWithError("round trip differs");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

BENCHMARK(BM_PlainHexLoop)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_ConvertHex)->Unit(benchmark::kMillisecond)->MinTime(2.0);

// Keeps the time per iteration of each run so the ratio can be printed at the end.
class RatioReporter final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && run.iterations > 0) {
        m_perIteration[run.benchmark_name()] =
            run.real_accumulated_time / static_cast<double>(run.iterations);
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatio() const {
    const double plain = TimeOf("BM_PlainHexLoop");
    const double convert = TimeOf("BM_ConvertHex");
    if (plain <= 0 || convert <= 0) return;
    std::printf("hex load/unload of 64 MiB: CConvert speed / plain loop speed = %.3f\n",
                plain / convert);
  }

 private:
  // The run's name carries its options after a "/" (min_time, ...).
  double TimeOf(const std::string& name) const {
    for (const auto& [runName, seconds] : m_perIteration) {
      if (runName == name || runName.rfind(name + "/", 0) == 0) return seconds;
    }
    return 0;
  }

  std::map<std::string, double> m_perIteration;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatio();
  benchmark::Shutdown();
  return 0;
}
