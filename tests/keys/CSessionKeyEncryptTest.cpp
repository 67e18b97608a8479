// CSessionKey: encryption and decryption of message objects in place, whole and in sections, the
// squared AMOUNT written back, the grow-and-retry pattern of block ciphers, and what a failure
// leaves in the message object and in the record.
#include "support/QuietLog.h"

#include "keys/CSessionKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "data/DataFormat.h"
#include "errors/QuivError.h"
#include "keys/KeyEnums.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/SessionKeyFixture.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

// Counts CryptEncrypt/CryptDecrypt calls and can fail one of them from its n-th use on.
class CipherSpy final : public platform::ForwardingPlatform {
 public:
  CipherSpy() : ForwardingPlatform(platform::Platform()) {}

  BOOL CryptEncrypt(HCRYPTKEY key, HCRYPTHASH hash, BOOL final, DWORD flags, BYTE* data,
                    DWORD* length, DWORD capacity) override {
    ++encryptCalls;
    finals.push_back(final);
    if (failEncryptFrom > 0 && encryptCalls >= failEncryptFrom) {
      SetLastError(static_cast<DWORD>(k.NTE_FAIL()));
      return FALSE;
    }
    return ForwardingPlatform::CryptEncrypt(key, hash, final, flags, data, length, capacity);
  }
  BOOL CryptDecrypt(HCRYPTKEY key, HCRYPTHASH hash, BOOL final, DWORD flags, BYTE* data,
                    DWORD* length) override {
    ++decryptCalls;
    finals.push_back(final);
    return ForwardingPlatform::CryptDecrypt(key, hash, final, flags, data, length);
  }

  int encryptCalls = 0;
  int decryptCalls = 0;
  int failEncryptFrom = 0;  // 0: never
  std::vector<BOOL> finals;
};

ByteArray Bytes(size_t count, uint8_t first = 0) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(first + i);
  return ByteArray(bytes);
}

ByteArray Slice(const ByteArray& bytes, size_t from, size_t count) {
  const auto begin = bytes.ToVector().begin() + static_cast<std::ptrdiff_t>(from);
  return ByteArray(std::vector<uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(count)));
}

class EncryptBase : public test::SessionKeyFixture {
 protected:
  using SessionKeyFixture::Message;

  static Ref<CMessagetext> Message(const ByteArray& bytes) {
    Ref<CMessagetext> message = MakeRef<CMessagetext>();
    EXPECT_TRUE(message->SetMessageText(bytes));
    return message;
  }
  static ByteArray Content(const Ref<CMessagetext>& message) {
    ByteArray out;
    EXPECT_TRUE(message->GetDataAsByteArray(out));
    return out;
  }
};

class EveryProvider : public EncryptBase, public ::testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override { OpenByLabel(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Providers, EveryProvider, ::testing::Values("Base", "Enhanced", "Default"),
                         [](const auto& info) { return std::string(info.param); });

TEST_P(EveryProvider, ABlockCipherPadsTenBytesToSixteenAndDecryptsThemBack) {
  for (int32_t algId : {k.CALG_RC2(), k.CALG_DES()}) {
    Ref<CSessionKey> key = MakeKey(algId, u"ten bytes");
    const ByteArray plain = Bytes(10, 0x30);
    Ref<CMessagetext> message = Message(plain);
    ASSERT_TRUE(key->Encrypt(message)) << Message(key);
    const ByteArray cipher = Content(message);
    EXPECT_EQ(cipher.size(), 16u);
    EXPECT_NE(Slice(cipher, 0, 10), plain);
    ASSERT_TRUE(key->Decrypt(message)) << Message(key);
    EXPECT_EQ(Content(message), plain);
  }
}

TEST_P(EveryProvider, AStreamCipherKeepsTheLength) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4(), u"stream");
  const ByteArray plain = Bytes(13, 0x41);
  Ref<CMessagetext> message = Message(plain);
  ASSERT_TRUE(key->Encrypt(message)) << Message(key);
  const ByteArray cipher = Content(message);
  EXPECT_EQ(cipher.size(), 13u);
  EXPECT_NE(cipher, plain);
  ASSERT_TRUE(key->Decrypt(message)) << Message(key);
  EXPECT_EQ(Content(message), plain);
}

TEST_P(EveryProvider, TheSquaredAmountIsWrittenBack) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), u"amounts");
  int32_t amount = ENTIRE;
  Ref<CMessagetext> message = Message(Bytes(10));
  ASSERT_TRUE(key->Encrypt(message, amount));
  EXPECT_EQ(amount, 1);
  EXPECT_EQ(Content(message).size(), 16u);
  amount = ENTIRE;
  ASSERT_TRUE(key->Decrypt(message, amount));
  EXPECT_EQ(amount, 1);
  EXPECT_EQ(Content(message), Bytes(10));

  amount = NOT_FINAL_SECTION;
  message = Message(Bytes(8));
  ASSERT_TRUE(key->Encrypt(message, amount));
  EXPECT_EQ(amount, 0);
  EXPECT_EQ(Content(message).size(), 8u);
  // Any other value is squared too, and every non-zero square is final.
  amount = -2;
  message = Message(Bytes(10));
  ASSERT_TRUE(key->Encrypt(message, amount));
  EXPECT_EQ(amount, 4);
  EXPECT_EQ(Content(message).size(), 16u);
  // A constant argument is accepted as it stands.
  EXPECT_TRUE(key->Encrypt(Message(Bytes(3)), ENTIRE));
}

TEST_P(EveryProvider, SectionsEncryptAndDecryptLikeOneCall) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), u"sections");
  const ByteArray plain = Bytes(16, 0x61);
  Ref<CMessagetext> whole = Message(plain);
  ASSERT_TRUE(key->Encrypt(whole, ENTIRE));
  const ByteArray oneCall = Content(whole);
  ASSERT_EQ(oneCall.size(), 24u);

  int32_t amount = NOT_FINAL_SECTION;
  Ref<CMessagetext> first = Message(Slice(plain, 0, 8));
  ASSERT_TRUE(key->Encrypt(first, amount)) << Message(key);
  EXPECT_EQ(Content(first).size(), 8u);
  amount = FINAL_SECTION;
  Ref<CMessagetext> second = Message(Slice(plain, 8, 8));
  ASSERT_TRUE(key->Encrypt(second, amount)) << Message(key);
  EXPECT_EQ(Content(second).size(), 16u);
  EXPECT_EQ(Content(first), Slice(oneCall, 0, 8));
  EXPECT_EQ(Content(second), Slice(oneCall, 8, 16));

  amount = NOT_FINAL_SECTION;
  ASSERT_TRUE(key->Decrypt(first, amount)) << Message(key);
  amount = FINAL_SECTION;
  ASSERT_TRUE(key->Decrypt(second, amount)) << Message(key);
  EXPECT_EQ(Content(first), Slice(plain, 0, 8));
  EXPECT_EQ(Content(second), Slice(plain, 8, 8));
}

TEST_P(EveryProvider, AStreamContinuesAcrossSections) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4(), u"sections");
  const ByteArray plain = Bytes(11, 0x10);
  Ref<CMessagetext> whole = Message(plain);
  ASSERT_TRUE(key->Encrypt(whole));
  Ref<CMessagetext> first = Message(Slice(plain, 0, 5));
  Ref<CMessagetext> second = Message(Slice(plain, 5, 6));
  ASSERT_TRUE(key->Encrypt(first, NOT_FINAL_SECTION));
  ASSERT_TRUE(key->Encrypt(second, FINAL_SECTION));
  EXPECT_EQ(Content(first), Slice(Content(whole), 0, 5));
  EXPECT_EQ(Content(second), Slice(Content(whole), 5, 6));
}

TEST_P(EveryProvider, AFinalCallStartsTheNextMessageAfresh) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), u"again");
  Ref<CMessagetext> one = Message(Bytes(20));
  Ref<CMessagetext> two = Message(Bytes(20));
  ASSERT_TRUE(key->Encrypt(one));
  ASSERT_TRUE(key->Encrypt(two));
  EXPECT_EQ(Content(one), Content(two));
}

TEST_P(EveryProvider, AWrongKeyFailsAndLeavesTheMessageAsItWas) {
  Ref<CSessionKey> right = MakeKey(k.CALG_RC2(), u"right");
  Ref<CSessionKey> wrong = MakeKey(k.CALG_RC2(), u"wrong");
  Ref<CMessagetext> message = Message(Bytes(10, 0x70));
  ASSERT_TRUE(right->Encrypt(message));
  const ByteArray cipher = Content(message);
  EXPECT_TRUE(FailedWith(wrong->Decrypt(message), wrong->m_oLastError,
                         MESSAGETEXT_ERROR_UNABLE_TO_DECRYPT, "QUIV.CSessionKey.Decrypt"));
  EXPECT_TRUE(Shows(wrong, "i_lAmount * i_lAmount=1")) << Message(wrong);
  EXPECT_EQ(static_cast<uint32_t>(wrong->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_DATA()));
  EXPECT_EQ(Content(message), cipher);
  // The failed final call reset the key: it still decrypts what it encrypted.
  ASSERT_TRUE(right->Decrypt(message));
  EXPECT_EQ(Content(message), Bytes(10, 0x70));
}

TEST_P(EveryProvider, DamagedCiphertextFailsAndLeavesTheMessageAsItWas) {
  Ref<CSessionKey> key = MakeKey(k.CALG_DES(), u"damage");
  Ref<CMessagetext> message = Message(Bytes(12, 0x01));
  ASSERT_TRUE(key->Encrypt(message));
  ByteArray damaged = Content(message);
  damaged[damaged.size() - 1] ^= 0x5A;
  ASSERT_TRUE(message->SetMessageText(damaged));
  EXPECT_TRUE(FailedWith(key->Decrypt(message), key->m_oLastError,
                         MESSAGETEXT_ERROR_UNABLE_TO_DECRYPT, "QUIV.CSessionKey.Decrypt"));
  EXPECT_EQ(Content(message), damaged);
  // A ciphertext that is not whole blocks is refused the same way.
  const ByteArray cut = Slice(damaged, 0, 15);
  ASSERT_TRUE(message->SetMessageText(cut));
  EXPECT_TRUE(FailedWith(key->Decrypt(message), key->m_oLastError,
                         MESSAGETEXT_ERROR_UNABLE_TO_DECRYPT, "QUIV.CSessionKey.Decrypt"));
  EXPECT_EQ(Content(message), cut);
}

// The key reuses its working array from call to call; a long message before a short one (and
// the other way round) must leave nothing of the earlier one in the result.
TEST_P(EveryProvider, MessagesOfChangingLengthsThroughOneKeyStayApart) {
  for (int32_t algId : {k.CALG_RC4(), k.CALG_DES()}) {
    Ref<CSessionKey> key = MakeKey(algId, u"lengths");
    Ref<CMessagetext> message = Message(Bytes(1000, 0x11));
    ASSERT_TRUE(key->Encrypt(message)) << Message(key);
    const ByteArray longCipher = Content(message);
    ASSERT_TRUE(message->SetMessageText(Bytes(5, 0x22)));
    ASSERT_TRUE(key->Encrypt(message)) << Message(key);
    const ByteArray shortCipher = Content(message);
    EXPECT_EQ(shortCipher.size(), algId == k.CALG_RC4() ? 5u : 8u);
    ASSERT_TRUE(message->SetMessageText(longCipher));
    ASSERT_TRUE(key->Decrypt(message)) << Message(key);
    EXPECT_EQ(Content(message), Bytes(1000, 0x11));
    ASSERT_TRUE(message->SetMessageText(shortCipher));
    ASSERT_TRUE(key->Decrypt(message)) << Message(key);
    EXPECT_EQ(Content(message), Bytes(5, 0x22));
  }
}

TEST_P(EveryProvider, WithoutAKeyTheAmountIsNotSquared) {
  Ref<CSessionKey> key = MakeRef<CSessionKey>();
  ASSERT_TRUE(Internal(key).SetProvider(provider));
  m_keys.push_back(key);
  Ref<CMessagetext> message = Message(Bytes(10, 0x41));
  int32_t amount = ENTIRE;
  EXPECT_TRUE(FailedWith(key->Encrypt(message, amount), key->m_oLastError,
                         KEY_ERROR_KEY_OBJECT_DOES_NOT_HAVE_SESSION_KEY_HANDLE,
                         "QUIV.CSessionKey.Encrypt"));
  EXPECT_EQ(amount, ENTIRE);
  EXPECT_TRUE(Shows(key, "Empty plaintext.=")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_lAmount * i_lAmount=-1")) << Message(key);
  key->m_oLastError->Clear();
  EXPECT_TRUE(FailedWith(key->Decrypt(message, amount), key->m_oLastError,
                         KEY_ERROR_KEY_OBJECT_DOES_NOT_HAVE_SESSION_KEY_HANDLE,
                         "QUIV.CSessionKey.Decrypt"));
  EXPECT_EQ(amount, ENTIRE);
  EXPECT_EQ(Content(message), Bytes(10, 0x41));
}

TEST_F(EncryptBase, AnAmountWhoseSquareOverflowsIsTheRunTimesError) {
  Open(k.MS_DEF_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  int32_t amount = 50000;
  Ref<CMessagetext> message = Message(Bytes(10));
  EXPECT_TRUE(FailedWith(key->Encrypt(message, amount), key->m_oLastError, kErrOverflow,
                         "QUIV.CSessionKey.Encrypt"));
  EXPECT_EQ(amount, 50000);
  EXPECT_TRUE(FailedWith(key->Decrypt(message, amount), key->m_oLastError, kErrOverflow,
                         "QUIV.CSessionKey.Decrypt"));
  EXPECT_EQ(Content(message), Bytes(10));
}

TEST_F(EncryptBase, AOneByteMessageIsRefusedAfterTheAmountWasSquared) {
  Open(k.MS_DEF_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  Ref<CMessagetext> message = Message(ByteArray{0x41});
  int32_t amount = ENTIRE;
  EXPECT_TRUE(FailedWith(key->Encrypt(message, amount), key->m_oLastError,
                         MESSAGETEXT_ERROR_UNABLE_TO_GET_MESSAGETEXT, "QUIV.CSessionKey.Encrypt"));
  EXPECT_EQ(amount, 1);
  EXPECT_TRUE(Shows(key, "Empty plaintext.=")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_lAmount * i_lAmount=1")) << Message(key);
  amount = ENTIRE;
  EXPECT_TRUE(FailedWith(key->Decrypt(message, amount), key->m_oLastError,
                         MESSAGETEXT_ERROR_UNABLE_TO_GET_MESSAGETEXT, "QUIV.CSessionKey.Decrypt"));
  EXPECT_EQ(amount, 1);
}

TEST_F(EncryptBase, AFailedEncryptionRecordsTheFirstTenCharacters) {
  Open(k.MS_ENHANCED_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  const std::string text = "The quick brown fox jumps";  // 25 characters
  Ref<CMessagetext> message = Message(ByteArray(std::vector<uint8_t>(text.begin(), text.end())));
  CipherSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.failEncryptFrom = 1;
  EXPECT_TRUE(FailedWith(key->Encrypt(message), key->m_oLastError,
                         MESSAGETEXT_ERROR_UNABLE_TO_ENCRYPT, "QUIV.CSessionKey.Encrypt"));
  EXPECT_TRUE(Shows(key, "Begin of ASCII of plntxt=The quick ")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_lAmount * i_lAmount=1")) << Message(key);
  EXPECT_EQ(Content(message), ByteArray(std::vector<uint8_t>(text.begin(), text.end())));
}

TEST_F(EncryptBase, ABlockCipherAsksForRoomOnceAndEncryptsOnce) {
  Open(k.MS_ENHANCED_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_3DES(), u"room");
  CipherSpy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CMessagetext> message = Message(Bytes(10));
  ASSERT_TRUE(key->Encrypt(message));
  EXPECT_EQ(spy.encryptCalls, 2);  // too small, then with the grown buffer
  EXPECT_EQ(Content(message).size(), 16u);

  // A whole-block section fits at once; a stale "more data" answer from an earlier call must not
  // make it go through the cipher twice.
  spy.encryptCalls = 0;
  platform::Platform().SetLastError(static_cast<DWORD>(k.ERROR_MORE_DATA()));
  Ref<CMessagetext> section = Message(Bytes(16));
  ASSERT_TRUE(key->Encrypt(section, NOT_FINAL_SECTION));
  EXPECT_EQ(spy.encryptCalls, 1);
  // A refused one-byte message leaves the open chain as it was.
  EXPECT_FALSE(key->Encrypt(Message(Bytes(1)), FINAL_SECTION));
  Ref<CMessagetext> rest = Message(Bytes(16, 16));
  ASSERT_TRUE(key->Encrypt(rest, FINAL_SECTION));
  Ref<CMessagetext> whole = Message(Bytes(32));
  ASSERT_TRUE(key->Encrypt(whole));
  EXPECT_EQ(Content(section), Slice(Content(whole), 0, 16));
  EXPECT_EQ(Content(rest), Slice(Content(whole), 16, 24));
}

TEST_F(EncryptBase, ARefusalOfTheEnlargedCallIsReportedAsMemory) {
  Open(k.MS_ENHANCED_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), u"memory");
  CipherSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.failEncryptFrom = 2;
  const std::string text = "ABCDEFGHIJKLM";
  const ByteArray plain(std::vector<uint8_t>(text.begin(), text.end()));
  Ref<CMessagetext> message = Message(plain);
  EXPECT_TRUE(FailedWith(key->Encrypt(message), key->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY, "QUIV.CSessionKey.Encrypt"));
  EXPECT_TRUE(Shows(key, "Begin of ASCII of plntxt=ABCDEFGHIJ")) << Message(key);
  EXPECT_EQ(Content(message), plain);
  // A first call refused for any reason but room is reported the same way.
  spy.encryptCalls = 0;
  spy.failEncryptFrom = 1;
  EXPECT_TRUE(FailedWith(key->Encrypt(message), key->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY, "QUIV.CSessionKey.Encrypt"));
  EXPECT_EQ(spy.encryptCalls, 1);
}

TEST_F(EncryptBase, ANonFinalSectionMustBeWholeBlocks) {
  Open(k.MS_DEF_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), u"blocks");
  Ref<CMessagetext> message = Message(Bytes(5));
  int32_t amount = NOT_FINAL_SECTION;
  EXPECT_TRUE(FailedWith(key->Encrypt(message, amount), key->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY, "QUIV.CSessionKey.Encrypt"));
  EXPECT_EQ(static_cast<uint32_t>(key->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_DATA()));
  EXPECT_TRUE(Shows(key, "i_lAmount * i_lAmount=0")) << Message(key);
  EXPECT_EQ(Content(message), Bytes(5));
}

TEST_F(EncryptBase, ModesChangeTheCiphertextAsTheyShould) {
  Open(k.MS_ENHANCED_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_DES(), u"modes");
  ByteArray twoBlocks = Bytes(8, 0x20);
  twoBlocks.ReDimPreserve(15);
  for (size_t i = 8; i < 16; ++i) twoBlocks[i] = twoBlocks[i - 8];
  Ref<CMessagetext> cbc = Message(twoBlocks);
  ASSERT_TRUE(key->Encrypt(cbc));
  EXPECT_NE(Slice(Content(cbc), 0, 8), Slice(Content(cbc), 8, 8));
  ASSERT_TRUE(key->ChangeCipherModeCode(u"CRYPT_MODE_ECB"));
  Ref<CMessagetext> ecb = Message(twoBlocks);
  ASSERT_TRUE(key->Encrypt(ecb));
  EXPECT_EQ(Slice(Content(ecb), 0, 8), Slice(Content(ecb), 8, 8));
  ASSERT_TRUE(key->Decrypt(ecb));
  EXPECT_EQ(Content(ecb), twoBlocks);
  // OFB is accepted by the key but the provider refuses to use it.
  ASSERT_TRUE(key->ChangeCipherModeCode(u"CRYPT_MODE_OFB"));
  Ref<CMessagetext> ofb = Message(twoBlocks);
  EXPECT_TRUE(FailedWith(key->Encrypt(ofb), key->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY, "QUIV.CSessionKey.Encrypt"));
  EXPECT_TRUE(FailedWith(key->Decrypt(cbc), key->m_oLastError, MESSAGETEXT_ERROR_UNABLE_TO_DECRYPT,
                         "QUIV.CSessionKey.Decrypt"));
  EXPECT_EQ(Content(ofb), twoBlocks);
}

TEST_F(EncryptBase, NoMessageObjectIsTheRunTimesObjectError) {
  Open(k.MS_DEF_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  EXPECT_TRUE(FailedWith(key->Encrypt(Ref<CMessagetext>()), key->m_oLastError, kErrObjectNotSet,
                         "QUIV.CSessionKey.Encrypt"));
  EXPECT_TRUE(FailedWith(key->Decrypt(Ref<CMessagetext>()), key->m_oLastError, kErrObjectNotSet,
                         "QUIV.CSessionKey.Decrypt"));
}

// --- the amount's write-back and the variable's type ---

// Whether Encrypt and Decrypt accept a variable of type Amount (or a temporary) as the amount.
template <class Amount>
concept EncryptTakes = requires(CSessionKey& key, const Ref<CMessagetext>& message, Amount&& a) {
  key.Encrypt(message, std::forward<Amount>(a));
};
template <class Amount>
concept DecryptTakes = requires(CSessionKey& key, const Ref<CMessagetext>& message, Amount&& a) {
  key.Decrypt(message, std::forward<Amount>(a));
};
template <class Amount>
concept BothTake = EncryptTakes<Amount> && DecryptTakes<Amount>;
template <class Amount>
concept NeitherTakes = !EncryptTakes<Amount> && !DecryptTakes<Amount>;

// Variables that receive the square, and values that are only read.
static_assert(BothTake<int32_t&>);
static_assert(BothTake<AMOUNT&>);
static_assert(BothTake<AMOUNT>);  // ENTIRE, FINAL_SECTION ... as temporaries
static_assert(BothTake<int32_t>);
static_assert(BothTake<const AMOUNT&>);
static_assert(BothTake<const int16_t&>);
// A variable of another type would be read through a converted temporary and never receive the
// square: it does not compile.
static_assert(NeitherTakes<int16_t&>);
static_assert(NeitherTakes<int64_t&>);
static_assert(NeitherTakes<uint32_t&>);
static_assert(NeitherTakes<long&>);
static_assert(NeitherTakes<double&>);
static_assert(NeitherTakes<bool&>);
static_assert(NeitherTakes<DATA_FORMAT&>);

TEST_P(EveryProvider, AnAmountVariableReceivesTheSquareToo) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), u"amounts");
  AMOUNT amount = ENTIRE;
  Ref<CMessagetext> message = Message(Bytes(10));
  ASSERT_TRUE(key->Encrypt(message, amount));
  EXPECT_EQ(amount, FINAL_SECTION);
  EXPECT_EQ(Content(message).size(), 16u);
  amount = ENTIRE;
  ASSERT_TRUE(key->Decrypt(message, amount));
  EXPECT_EQ(amount, FINAL_SECTION);
  EXPECT_EQ(Content(message), Bytes(10));

  amount = NOT_FINAL_SECTION;
  message = Message(Bytes(8));
  ASSERT_TRUE(key->Encrypt(message, amount));
  EXPECT_EQ(amount, NOT_FINAL_SECTION);
  EXPECT_EQ(Content(message).size(), 8u);  // not final: no padding
}

TEST_F(EncryptBase, AnAmountVariableReceivesTheSquareOfAFailedCallAsAnIntegerDoes) {
  Open(k.MS_DEF_PROV());
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  Ref<CMessagetext> message = Message(ByteArray{0x41});  // refused after the squaring
  AMOUNT amount = ENTIRE;
  EXPECT_FALSE(key->Encrypt(message, amount));
  EXPECT_EQ(amount, FINAL_SECTION);
  amount = ENTIRE;
  EXPECT_FALSE(key->Decrypt(message, amount));
  EXPECT_EQ(amount, FINAL_SECTION);
}

// --- the working array ---

// The first `count` bytes of the key's working array storage (within its capacity).
std::vector<uint8_t> WorkingBytes(const Ref<CSessionKey>& key, size_t count) {
  const ByteArray& work = Internal(key).WorkingArray();
  EXPECT_GE(work.Capacity(), count);
  return std::vector<uint8_t>(work.data(), work.data() + std::min(count, work.Capacity()));
}

TEST_P(EveryProvider, EncryptWipesThePlaintextItKeepsForItsMemory) {
  for (int32_t algId : {k.CALG_RC4(), k.CALG_DES()}) {
    Ref<CSessionKey> key = MakeKey(algId, u"wipe");
    const ByteArray plain(std::vector<uint8_t>(4096, 0xA5));
    Ref<CMessagetext> message = Message(plain);
    ASSERT_TRUE(key->Encrypt(message)) << Message(key);
    // The message's old buffer, which held the plaintext, is now the key's working array.
    EXPECT_EQ(WorkingBytes(key, plain.size()), std::vector<uint8_t>(plain.size(), 0));
    EXPECT_EQ(Internal(key).WorkingArray(), ByteArray());
  }
}

TEST_P(EveryProvider, DecryptWipesWhatItKeeps) {
  Ref<CSessionKey> key = MakeKey(k.CALG_DES(), u"wipe");
  Ref<CMessagetext> message = Message(ByteArray(std::vector<uint8_t>(4096, 0xA5)));
  ASSERT_TRUE(key->Encrypt(message));
  const size_t cipherSize = Content(message).size();
  ASSERT_TRUE(key->Decrypt(message)) << Message(key);
  EXPECT_EQ(WorkingBytes(key, cipherSize), std::vector<uint8_t>(cipherSize, 0));
}

TEST_P(EveryProvider, AFailedDecryptWipesItsOutput) {
  Ref<CSessionKey> key = MakeKey(k.CALG_DES(), u"wipe");
  Ref<CMessagetext> message = Message(ByteArray(std::vector<uint8_t>(4096, 0xA5)));
  ASSERT_TRUE(key->Encrypt(message));
  ByteArray damaged = Content(message);
  damaged[damaged.size() - 1] ^= 0x5A;  // the padding no longer checks
  ASSERT_TRUE(message->SetMessageText(damaged));
  EXPECT_FALSE(key->Decrypt(message));
  EXPECT_EQ(WorkingBytes(key, damaged.size()), std::vector<uint8_t>(damaged.size(), 0));
  EXPECT_EQ(Content(message), damaged);
}

}  // namespace
}  // namespace quiv
