// The C++ side of the Python call-cost benchmark (python_call_cost.py): the same calls the
// Python client makes, through the library's classes directly. Prints one line per case,
// "<case> <best nanoseconds per call>", the best of several batches.
#include <chrono>
#include <cstdio>
#include <string>

#include "ObjectSession.h"
#include "PairTimer.h"
#include "automation/String.h"
#include "data/DataFormat.h"
// After the other headers: the catalogue's getters share their names with the C macros.
#include "constants/CConstQUIV.h"

namespace quiv::bench {
namespace {

constexpr int kBatches = 15;

// Best nanoseconds per run of `side` over kBatches batches of about kBatchSeconds each.
double BestNanoseconds(const Side& side) {
  const double once = TimeBatch(side, 1);
  const int batch = once > kBatchSeconds ? 1 : static_cast<int>(kBatchSeconds / once) + 1;
  double best = once;
  for (int i = 0; i < kBatches; ++i) {
    const double seconds = TimeBatch(side, batch);
    if (seconds < best) best = seconds;
  }
  return best * 1e9;
}

int Run() {
  ObjectSession session;
  const CConstQUIV c;
  Require(session.key->SetKeyAlgorithmID(c.CALG_RC4()), "key", session.key->m_oLastError);
  Require(session.key->GenerateSessionKey(), "key", session.key->m_oLastError);
  volatile int32_t sink = 0;

  const CConstQUIV constants;
  std::printf("constant_getter %.1f\n",
              BestNanoseconds({[&] { sink = sink + constants.CRYPT_EXPORTABLE(); }}));
  std::printf("key_length_getter %.1f\n", BestNanoseconds({[&] {
                int32_t bits = 0;
                Require(session.key->GetKeyLength(bits), "GetKeyLength", session.key->m_oLastError);
                sink = sink + bits;
              }}));
  std::printf("typical_request %.1f\n", BestNanoseconds({[&] {
                Require(session.message->LoadMessageText(u"Attack at dawn.", STRING_VB), "load",
                        session.message->m_oLastError);
                Require(session.key->SetKeyAlgorithmID(c.CALG_3DES()) &&
                            session.key->SetKeyPhrase(u"my secret phrase") &&
                            session.key->GenerateSessionKey() &&
                            session.key->Encrypt(session.message),
                        "encrypt", session.key->m_oLastError);
                String hex;
                Require(session.message->UnloadMessageText(hex, STRING_HEX), "unload",
                        session.message->m_oLastError);
              }}));
  return 0;
}

}  // namespace
}  // namespace quiv::bench

int main() {
  try {
    return quiv::bench::Run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
