// The container file codec: layout, round trip, and rejection of every damaged form.
#include "platform/ContainerFile.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <random>
#include <vector>

#include "platform/CspError.h"
#include "support/PlatformTestHelpers.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;

using test::ErrorOf;

constexpr uint32_t kEntryBad = static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD);

uint32_t ReadLe32(const SecureBytes& b, size_t at) {
  return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

// Recomputes the trailing SHA-256 with OpenSSL's one-shot API, so tests can build files whose
// checksum is right but whose fields are not.
void Reseal(SecureBytes& file) {
  unsigned int length = 0;
  ASSERT_EQ(1, EVP_Digest(file.data(), file.size() - 32, file.data() + file.size() - 32, &length,
                          EVP_sha256(), nullptr));
}

ContainerFile Sample() {
  ContainerFile file("Sample Keys");
  file.SetPair(AT_KEYEXCHANGE, Bytes{1, 2, 3, 4, 5});
  file.SetPair(AT_SIGNATURE, Bytes{9, 8, 7});
  return file;
}

TEST(ContainerFileTest, LayoutHasMagicVersionMaskLengthsAndDigest) {
  const SecureBytes image = Sample().Encode();
  ASSERT_EQ(image.size(), 24u + 11 + 5 + 3 + 32);
  EXPECT_EQ(0, std::memcmp(image.data(), "QUIVKEYC", 8));
  EXPECT_EQ(image[8], 1);
  EXPECT_EQ(image[9], 0);
  EXPECT_EQ(image[10], 3);  // both slots present
  EXPECT_EQ(image[11], 0);
  EXPECT_EQ(ReadLe32(image, 12), 11u);
  EXPECT_EQ(ReadLe32(image, 16), 5u);
  EXPECT_EQ(ReadLe32(image, 20), 3u);
  EXPECT_EQ(0, std::memcmp(image.data() + 24, "Sample Keys", 11));
  EXPECT_EQ(image[35], 1);
  EXPECT_EQ(image[40], 9);
  SecureBytes resealed = image;
  std::fill(resealed.end() - 32, resealed.end(), 0);
  Reseal(resealed);
  EXPECT_EQ(resealed, image);
}

TEST(ContainerFileTest, RoundTripKeepsNameAndSlots) {
  const ContainerFile back = ContainerFile::Decode(Sample().Encode());
  EXPECT_EQ(back.name(), "Sample Keys");
  EXPECT_EQ(*back.Pair(AT_KEYEXCHANGE), (SecureBytes{1, 2, 3, 4, 5}));
  EXPECT_EQ(*back.Pair(AT_SIGNATURE), (SecureBytes{9, 8, 7}));
}

TEST(ContainerFileTest, EmptySlotDiffersFromEmptyPair) {
  ContainerFile file("x");
  file.SetPair(AT_SIGNATURE, Bytes{});
  const ContainerFile back = ContainerFile::Decode(file.Encode());
  EXPECT_FALSE(back.Pair(AT_KEYEXCHANGE).has_value());
  ASSERT_TRUE(back.Pair(AT_SIGNATURE).has_value());
  EXPECT_TRUE(back.Pair(AT_SIGNATURE)->empty());
}

TEST(ContainerFileTest, NameKeepsEveryByte) {
  std::string name;
  for (int i = 0; i < 260; ++i) name.push_back(static_cast<char>(1 + i % 255));
  EXPECT_EQ(ContainerFile::Decode(ContainerFile(name).Encode()).name(), name);
}

TEST(ContainerFileTest, BadSlotAndOverlongPairAreRejected) {
  ContainerFile file("x");
  EXPECT_EQ(ErrorOf([&] { file.SetPair(0, Bytes{1}); }), static_cast<uint32_t>(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([&] { file.SetPair(3, Bytes{1}); }), static_cast<uint32_t>(NTE_BAD_KEY));
  EXPECT_EQ(ErrorOf([&] { (void)file.Pair(3); }), static_cast<uint32_t>(NTE_BAD_KEY));
  const Bytes huge(ContainerFile::kMaxPairBytes + 1);
  EXPECT_EQ(ErrorOf([&] { file.SetPair(AT_SIGNATURE, huge); }), static_cast<uint32_t>(NTE_BAD_LEN));
}

TEST(ContainerFileTest, EveryFlippedBitIsDetected) {
  const SecureBytes image = Sample().Encode();
  for (size_t i = 0; i < image.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      SecureBytes damaged = image;
      damaged[i] ^= static_cast<uint8_t>(1u << bit);
      EXPECT_EQ(ErrorOf([&] { ContainerFile::Decode(damaged); }), kEntryBad)
          << "byte " << i << " bit " << bit;
    }
  }
}

TEST(ContainerFileTest, EveryTruncationAndAnyExtensionIsDetected) {
  const SecureBytes image = Sample().Encode();
  for (size_t length = 0; length < image.size(); ++length) {
    const std::span<const uint8_t> cut(image.data(), length);
    EXPECT_EQ(ErrorOf([&] { ContainerFile::Decode(cut); }), kEntryBad) << length;
  }
  SecureBytes longer = image;
  longer.push_back(0);
  EXPECT_EQ(ErrorOf([&] { ContainerFile::Decode(longer); }), kEntryBad);
}

TEST(ContainerFileTest, GarbageIsDetected) {
  std::mt19937 random(12345);
  for (size_t length : {1u, 24u, 56u, 57u, 100u, 4096u}) {
    SecureBytes garbage(length);
    for (auto& b : garbage) b = static_cast<uint8_t>(random());
    EXPECT_EQ(ErrorOf([&] { ContainerFile::Decode(garbage); }), kEntryBad);
    // Garbage behind a right magic and version is still garbage.
    if (length >= 12) {
      std::memcpy(garbage.data(), "QUIVKEYC\x01\x00", 10);
      EXPECT_EQ(ErrorOf([&] { ContainerFile::Decode(garbage); }), kEntryBad);
    }
  }
}

// Files whose checksum is right but whose fields break the layout are still damaged.
TEST(ContainerFileTest, InconsistentFieldsUnderAValidDigestAreDetected) {
  const SecureBytes image = Sample().Encode();
  auto expectBad = [&](const std::function<void(SecureBytes&)>& change, const char* what) {
    SecureBytes file = image;
    change(file);
    Reseal(file);
    EXPECT_EQ(ErrorOf([&] { ContainerFile::Decode(file); }), kEntryBad) << what;
  };
  expectBad([](SecureBytes& f) { f[8] = 2; }, "version 2");
  expectBad([](SecureBytes& f) { f[10] = 7; }, "unknown slot bit");
  expectBad([](SecureBytes& f) { f[10] = 1; }, "signature length without the slot");
  expectBad([](SecureBytes& f) { f[24] = 0; }, "NUL in the name");
  expectBad([](SecureBytes& f) { f[12] = 0; }, "name length 0");
  expectBad([](SecureBytes& f) { f[15] = 0x80; }, "huge name length");
  expectBad([](SecureBytes& f) { f[19] = 0xFF; }, "huge pair length");
  expectBad([](SecureBytes& f) { f[16] = 6; }, "lengths do not add up");
}

TEST(ContainerFileTest, AcceptsOnlyWhatItWrote) {
  // The same bytes with a digest recomputed over a changed name decode to the changed name:
  // the digest is what detects damage, and the check above depends on it.
  SecureBytes file = Sample().Encode();
  file[24] = 's';
  Reseal(file);
  EXPECT_EQ(ContainerFile::Decode(file).name(), "sample Keys");
}

}  // namespace
}  // namespace quiv::platform
