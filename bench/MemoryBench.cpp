// Heap use of the automation objects against the same work done directly, in the same process.
// Each case measures, for one piece of work on a 64 MiB message, the most heap it held at once
// beyond what was held before it began (peak) and what it still held when done (kept):
// - CSessionKey::Encrypt and Decrypt of a CMessagetext (RC4, 3DES), on a key's first message and
//   on the next one, against EVP writing a new output buffer beside the input: the fair baseline,
//   since a failed call of ours must leave the message as it was;
// - CMessagetext::UnloadMessageText and LoadMessageText in STRING_HEX against a plain loop
//   that makes the hex text (UTF-16, as our strings are) and the bytes anew.
// The ratio compares what each side needs in all while it works, the message itself plus its
// peak: (message + baseline peak) / (message + our peak). 1.0 means no more memory than the
// baseline, below 1.0 more. Memory is counted through operator new (HeapMeter), where every
// container of the library allocates; it does not depend on timing, so one run of each case is
// enough.
#include <cstdint>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "EvpBaseline.h"
#include "HeapMeter.h"
#include "ObjectSession.h"
#include "automation/ByteArray.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "keys/CSessionKey.h"

namespace quiv::bench {
namespace {

constexpr size_t kLarge = size_t{64} << 20;
constexpr double kMiB = 1024.0 * 1024.0;

std::vector<uint8_t> RandomBytes(size_t n, uint64_t seed) {
  std::vector<uint8_t> bytes(n);
  std::mt19937_64 rng(seed);
  for (auto& b : bytes) b = static_cast<uint8_t>(rng());
  return bytes;
}

struct Row {
  std::string name;
  HeapUse ours;
  HeapUse baseline;
  size_t message = kLarge;  // the input both sides start from
};

void PrintTable(const std::vector<Row>& rows) {
  std::printf("\n| case | ours peak | ours kept | baseline peak | baseline kept | ratio |\n");
  std::printf("|---|---:|---:|---:|---:|---:|\n");
  for (const Row& row : rows) {
    const double ratio = static_cast<double>(row.message + row.baseline.peak) /
                         static_cast<double>(row.message + row.ours.peak);
    std::printf("| %s | %.1f MiB | %.1f MiB | %.1f MiB | %.1f MiB | %.3f |\n", row.name.c_str(),
                static_cast<double>(row.ours.peak) / kMiB,
                static_cast<double>(row.ours.kept) / kMiB,
                static_cast<double>(row.baseline.peak) / kMiB,
                static_cast<double>(row.baseline.kept) / kMiB, ratio);
  }
}

// One cipher on a fresh session: the first message (no working array yet) and the next one.
void CipherRows(EvpBaseline& evp, int32_t algId, const char* label, const char* evpName,
                std::vector<Row>& rows) {
  ObjectSession session;
  CSessionKey& key = *session.key;
  CMessagetext& message = *session.message;
  Require(key.SetKeyAlgorithmID(algId), "SetKeyAlgorithmID", key.m_oLastError);
  Require(key.GenerateSessionKey(), "GenerateSessionKey", key.m_oLastError);
  const std::vector<uint8_t> keyBytes = session.KeyBytes();
  const EVP_CIPHER* cipher = evp.Cipher(evpName);
  EvpCipherCtx ctx(EVP_CIPHER_CTX_new());
  const std::vector<uint8_t> plain = RandomBytes(kLarge, 3);

  // The baseline keeps its input and writes a new buffer, as a caller of EVP who must not lose
  // the input on failure would.
  std::vector<uint8_t> evpCipher;
  auto evpSide = [&](bool encrypt, const std::vector<uint8_t>& in) {
    return MeasureHeap([&] {
      std::vector<uint8_t> out(in.size() + 16);
      out.resize(EvpBaseline::CipherOnce(ctx.get(), cipher, keyBytes, encrypt, in.data(), in.size(),
                                         out.data()));
      if (encrypt) evpCipher = std::move(out);
    });
  };
  auto oursSide = [&](bool encrypt, const std::vector<uint8_t>& in) {
    Require(message.SetMessageText(ByteArray(in)), "SetMessageText", message.m_oLastError);
    return MeasureHeap([&] {
      const bool ok = encrypt ? key.Encrypt(session.message) : key.Decrypt(session.message);
      Require(ok, "Encrypt/Decrypt", key.m_oLastError);
    });
  };

  const std::string name(label);
  const HeapUse firstEncrypt = oursSide(true, plain);
  ByteArray ours;
  Require(message.GetMessageText(ours), "GetMessageText", message.m_oLastError);
  rows.push_back({name + " encrypt 64 MiB, first message", firstEncrypt, evpSide(true, plain)});
  if (ours.ToVector() != evpCipher) throw std::runtime_error(name + ": ciphertexts differ");
  const std::vector<uint8_t> cipherText = evpCipher;
  rows.push_back(
      {name + " encrypt 64 MiB, next message", oursSide(true, plain), evpSide(true, plain)});
  rows.push_back({name + " decrypt 64 MiB, next message", oursSide(false, cipherText),
                  evpSide(false, cipherText)});
}

// Hex text: the message unloaded to a new string and loaded back from it.
void HexRows(std::vector<Row>& rows) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  const std::vector<uint8_t> data = RandomBytes(kLarge, 7);
  CMessagetext message;
  Require(message.SetMessageText(ByteArray(data)), "SetMessageText", message.m_oLastError);

  String hex;
  const HeapUse oursUnload = MeasureHeap(
      [&] { Require(message.UnloadMessageText(hex, STRING_HEX), "Unload", message.m_oLastError); });
  std::u16string plainHex;
  const HeapUse loopUnload = MeasureHeap([&] {
    plainHex.assign(data.size() * 2, u'0');
    for (size_t i = 0; i < data.size(); ++i) {
      plainHex[2 * i] = kDigits[data[i] >> 4];
      plainHex[2 * i + 1] = kDigits[data[i] & 0x0F];
    }
  });
  if (hex.u16() != plainHex) throw std::runtime_error("hex texts differ");
  rows.push_back({"hex unload 64 MiB", oursUnload, loopUnload});

  CMessagetext loaded;
  const HeapUse oursLoad = MeasureHeap(
      [&] { Require(loaded.LoadMessageText(hex, STRING_HEX), "Load", loaded.m_oLastError); });
  std::vector<uint8_t> bytes;
  const HeapUse loopLoad = MeasureHeap([&] {
    bytes.assign(plainHex.size() / 2, 0);
    for (size_t i = 0; i < bytes.size(); ++i) {
      auto value = [](char16_t c) { return c <= u'9' ? c - u'0' : c - u'A' + 10; };
      bytes[i] = static_cast<uint8_t>(value(plainHex[2 * i]) * 16 + value(plainHex[2 * i + 1]));
    }
  });
  if (bytes != data) throw std::runtime_error("hex load disagrees");
  rows.push_back({"hex load 64 MiB", oursLoad, loopLoad, hex.u16().size() * sizeof(char16_t)});
}

}  // namespace
}  // namespace quiv::bench

int main() {
  using namespace quiv::bench;
  try {
    const quiv::CConstQUIV c;
    EvpBaseline evp;
    std::vector<Row> rows;
    CipherRows(evp, c.CALG_RC4(), "RC4", "RC4", rows);
    CipherRows(evp, c.CALG_3DES(), "3DES", "DES-EDE3-CBC", rows);
    HexRows(rows);
    PrintTable(rows);
    std::printf(
        "\npeak: the most heap held at once during the call beyond what was held before it;\n"
        "kept: what the call still held when done;\n"
        "ratio = (input + baseline peak) / (input + our peak), the input being the message\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quiv_bench_memory: %s\n", e.what());
    return 1;
  }
  return 0;
}
