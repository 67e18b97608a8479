// The automation surface's own cost: one IDispatch::Invoke by dispatch id against the direct C++
// call doing the same work in the same process, for a cheap getter
// (CMessagetext.GetMessagetextLengthInBytes, its result through a by-reference argument) and for
// CSessionKey.Encrypt of a 1 KiB message (RC2, the message reset before each run, untimed).
// Prints the ratio table and the time each Invoke adds, in nanoseconds per call.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "ObjectSession.h"
#include "PairTimer.h"
#include "RatioReporter.h"
#include "automation/ByteArray.h"
#include "server/DispatchObject.h"
#include "server/quiv_server.h"

namespace quiv::bench {
namespace {

constexpr int kSamples = 200;
constexpr size_t kMessageBytes = 1024;

// The session's objects as a late-bound caller holds them.
struct Dispatched {
  IDispatch* message;
  IDispatch* key;
  explicit Dispatched(ObjectSession& session)
      : message(server::DispatchObject::Wrap(session.message)),
        key(server::DispatchObject::Wrap(session.key)) {
    if (message == nullptr || key == nullptr) throw std::runtime_error("no dispatch objects");
  }
  ~Dispatched() {
    message->lpVtbl->Release(message);
    key->lpVtbl->Release(key);
  }
  Dispatched(const Dispatched&) = delete;
  Dispatched& operator=(const Dispatched&) = delete;
};

DISPID IdOf(IDispatch* object, const char16_t* name) {
  LPOLESTR names[1] = {const_cast<LPOLESTR>(name)};
  DISPID id = DISPID_UNKNOWN;
  if (object->lpVtbl->GetIDsOfNames(object, &IID_NULL, names, 1, 0, &id) != S_OK) {
    throw std::runtime_error("no dispatch id");
  }
  return id;
}

void RequireTrue(HRESULT hr, const VARIANT& result, const char* what) {
  if (hr != S_OK || result.vt != VT_BOOL || result.boolVal != VARIANT_TRUE) {
    throw std::runtime_error(std::string(what) + " through Invoke failed");
  }
}

class GetterCase {
 public:
  GetterCase(ObjectSession& session, Dispatched& dispatched)
      : m_session(session), m_message(dispatched.message) {
    Require(session.message->SetMessageText(ByteArray(std::vector<uint8_t>(kMessageBytes, 7))),
            "SetMessageText", {});
    m_id = IdOf(m_message, u"GetMessagetextLengthInBytes");
    m_arg.vt = VT_BYREF | VT_I4;
    m_arg.plVal = &m_length;
    m_params = {&m_arg, nullptr, 1, 0};
    VARIANT result;
    VariantInit(&result);
    RequireTrue(Invoke(result), result, "GetMessagetextLengthInBytes");
    if (m_length != static_cast<LONG>(kMessageBytes)) throw std::runtime_error("length differs");
  }

  HRESULT Invoke(VARIANT& result) {
    return m_message->lpVtbl->Invoke(m_message, m_id, &IID_NULL, 0, DISPATCH_METHOD, &m_params,
                                     &result, nullptr, nullptr);
  }

  Side Ours() {
    return {[this] {
      VARIANT result;
      VariantInit(&result);
      benchmark::DoNotOptimize(Invoke(result));
      benchmark::DoNotOptimize(m_length);
    }};
  }
  Side Direct() {
    return {[this] {
      int32_t length = 0;
      benchmark::DoNotOptimize(m_session.message->GetMessagetextLengthInBytes(length));
      benchmark::DoNotOptimize(length);
    }};
  }

 private:
  ObjectSession& m_session;
  IDispatch* m_message;
  DISPID m_id = 0;
  LONG m_length = 0;
  VARIANT m_arg{};
  DISPPARAMS m_params{};
};

class EncryptCase {
 public:
  EncryptCase(ObjectSession& session, Dispatched& dispatched)
      : m_session(session), m_key(dispatched.key), m_plain(std::vector<uint8_t>(kMessageBytes, 3)) {
    Require(session.key->SetKeyPhrase(u"benchmark"), "SetKeyPhrase", session.key->m_oLastError);
    Require(session.key->GenerateSessionKey(), "GenerateSessionKey", session.key->m_oLastError);
    m_id = IdOf(m_key, u"Encrypt");
    m_arg.vt = VT_DISPATCH;
    m_arg.pdispVal = dispatched.message;  // borrowed: the caller's variable holds it
    m_params = {&m_arg, nullptr, 1, 0};
    // Both paths give the same ciphertext.
    Reset();
    VARIANT result;
    VariantInit(&result);
    RequireTrue(Invoke(result), result, "Encrypt");
    ByteArray viaInvoke;
    Require(session.message->GetMessageText(viaInvoke), "GetMessageText", {});
    Reset();
    Require(session.key->Encrypt(session.message), "Encrypt", session.key->m_oLastError);
    ByteArray direct;
    Require(session.message->GetMessageText(direct), "GetMessageText", {});
    if (!(viaInvoke == direct)) throw std::runtime_error("ciphertexts differ");
  }

  void Reset() { Require(m_session.message->SetMessageText(m_plain), "SetMessageText", {}); }

  HRESULT Invoke(VARIANT& result) {
    return m_key->lpVtbl->Invoke(m_key, m_id, &IID_NULL, 0, DISPATCH_METHOD, &m_params, &result,
                                 nullptr, nullptr);
  }

  Side Ours() {
    return {[this] {
              VARIANT result;
              VariantInit(&result);
              benchmark::DoNotOptimize(Invoke(result));
            },
            [this] { Reset(); }};
  }
  Side Direct() {
    return {[this] { benchmark::DoNotOptimize(m_session.key->Encrypt(m_session.message)); },
            [this] { Reset(); }};
  }

 private:
  ObjectSession& m_session;
  IDispatch* m_key;
  ByteArray m_plain;
  DISPID m_id = 0;
  VARIANT m_arg{};
  DISPPARAMS m_params{};
};

void PrintAddedCost(const RatioReporter& reporter, const std::vector<std::string>& cases) {
  std::printf("\n| case | Invoke | direct | added per call |\n|---|---:|---:|---:|\n");
  for (const std::string& name : cases) {
    const auto [ours, direct] = reporter.Best(name);
    std::printf("| %s | %.0f ns | %.0f ns | %.0f ns |\n", name.c_str(), ours * 1e9, direct * 1e9,
                (ours - direct) * 1e9);
  }
}

}  // namespace
}  // namespace quiv::bench

int main(int argc, char** argv) {
  using namespace quiv::bench;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter("direct C++");
  try {
    ObjectSession session;
    Dispatched dispatched(session);
    GetterCase getter(session, dispatched);
    EncryptCase encrypt(session, dispatched);
    const std::vector<std::string> cases = {"Invoke GetMessagetextLengthInBytes",
                                            "Invoke Encrypt 1 KiB"};
    RegisterPair(reporter, {cases[0], false, 1, 0.1}, kSamples, getter.Ours(), getter.Direct(),
                 0.001);
    RegisterPair(reporter, {cases[1], true, kMessageBytes, 0.8}, kSamples, encrypt.Ours(),
                 encrypt.Direct(), 0.001);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const int below = reporter.PrintTable(stdout);
    std::printf("\nratio = Invoke rate / direct C++ rate; %d case(s) below the aim\n", below);
    PrintAddedCost(reporter, cases);
    std::printf("\naim: under 300 ns added per call\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quiv_bench_invoke: %s\n", e.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}
