// CMessagetext: the message buffer, its empty convention, its loaders and unloaders in every
// outside form, and its answers to the hashable contract.
#include "support/QuietLog.h"

#include "data/CMessagetext.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

namespace fs = std::filesystem;
using test::FailedWith;

std::vector<uint8_t> FileBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class CMessagetextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_dir = fs::temp_directory_path() /
            ("quiv-msg-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(m_dir);
  }
  void TearDown() override { fs::remove_all(m_dir); }

  int32_t Bytes() {
    int32_t n = -1;
    EXPECT_TRUE(message->GetMessagetextLengthInBytes(n));
    return n;
  }
  int32_t Chars() {
    int32_t n = -1;
    EXPECT_TRUE(message->GetMessagetextLengthInChars(n));
    return n;
  }
  const Ref<CErrHandler>& Record() const { return message->m_oLastError; }
  String PathOf(const char* name) const { return String::FromUtf8((m_dir / name).string()); }

  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  fs::path m_dir;
  Ref<CMessagetext> message = MakeRef<CMessagetext>();
};

TEST_F(CMessagetextTest, ANewMessageIsEmpty) {
  EXPECT_EQ(Bytes(), 0);
  EXPECT_EQ(Chars(), 0);
  ByteArray out{9, 9};
  EXPECT_TRUE(FailedWith(message->GetMessageText(out), Record(),
                         MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT,
                         "QUIV.CMessageText.GetMessageText"));
  EXPECT_EQ(out, (ByteArray{9, 9}));
}

TEST_F(CMessagetextTest, ALoneNonZeroByteIsAOneByteMessageButGetMessageTextRefusesIt) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{65}));
  EXPECT_EQ(Bytes(), 1);
  EXPECT_EQ(Chars(), 0);
  ByteArray out;
  EXPECT_TRUE(FailedWith(message->GetMessageText(out), Record(),
                         MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT,
                         "QUIV.CMessageText.GetMessageText"));
  ByteArray hashed;
  ASSERT_TRUE(message->GetDataAsByteArray(hashed));
  EXPECT_EQ(hashed, ByteArray{65});
}

TEST_F(CMessagetextTest, SettingOneZeroByteIsTheSameAsClear) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2, 3}));
  ASSERT_TRUE(message->SetMessageText(ByteArray{0}));
  EXPECT_EQ(Bytes(), 0);
  EXPECT_EQ(Chars(), 0);
  ByteArray out;
  EXPECT_FALSE(message->GetDataAsByteArray(out));

  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2, 3}));
  ASSERT_TRUE(message->Clear());
  EXPECT_EQ(Bytes(), 0);
  EXPECT_TRUE(FailedWith(message->GetDataAsByteArray(out), Record(),
                         MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT,
                         "QUIV.CMessageText.IHash_GetDataAsByteArray"));
}

TEST_F(CMessagetextTest, FiveBytesAreTwoCharacters) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2, 3, 4, 5}));
  EXPECT_EQ(Bytes(), 5);
  EXPECT_EQ(Chars(), 2);
  ByteArray out;
  ASSERT_TRUE(message->GetMessageText(out));
  EXPECT_EQ(out, (ByteArray{1, 2, 3, 4, 5}));
}

TEST_F(CMessagetextTest, TheCallerGetsCopiesNotTheBuffer) {
  ByteArray in{10, 20, 30};
  ASSERT_TRUE(message->SetMessageText(in));
  in[0] = 99;
  ByteArray out;
  ASSERT_TRUE(message->GetMessageText(out));
  out[1] = 99;
  ByteArray again;
  ASSERT_TRUE(message->GetMessageText(again));
  EXPECT_EQ(again, (ByteArray{10, 20, 30}));
}

TEST_F(CMessagetextTest, ExchangeSwapsTheBuffersWithoutCopying) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2, 3}));
  ByteArray next{4, 5, 6, 7};
  const uint8_t* const nextBuffer = next.data();
  ASSERT_TRUE(Internal(message).ExchangeMessageText(next));
  EXPECT_EQ(next, (ByteArray{1, 2, 3}));
  ByteArray now;
  ASSERT_TRUE(message->GetMessageText(now));
  EXPECT_EQ(now, (ByteArray{4, 5, 6, 7}));
  // The message took over the very buffer: exchanging back returns it.
  ASSERT_TRUE(Internal(message).ExchangeMessageText(next));
  EXPECT_EQ(next.data(), nextBuffer);
}

TEST_F(CMessagetextTest, ACopyThatMustMoveGetsTheRoomAskedFor) {
  ASSERT_TRUE(message->SetMessageText(ByteArray(std::vector<uint8_t>(100, 7))));
  ByteArray small{1, 2};
  ASSERT_TRUE(Internal(message).GetMessageText(small, 8));
  EXPECT_EQ(small, ByteArray(std::vector<uint8_t>(100, 7)));
  EXPECT_GE(small.Capacity(), 108u);
  // Growing by the room keeps the buffer.
  const uint8_t* const buffer = small.data();
  small.ReDimPreserve(107);
  EXPECT_EQ(small.data(), buffer);
}

TEST_F(CMessagetextTest, ACopyIntoATargetThatFitsKeepsItsBuffer) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2, 3}));
  ByteArray large(std::vector<uint8_t>(50, 9));
  const uint8_t* const buffer = large.data();
  ASSERT_TRUE(Internal(message).GetMessageText(large, 8));
  EXPECT_EQ(large, (ByteArray{1, 2, 3}));
  EXPECT_EQ(large.data(), buffer);
}

TEST_F(CMessagetextTest, ACopyWithRoomRefusesTheEmptyMessageLikeTheCopyWithout) {
  ByteArray out{4, 5};
  EXPECT_TRUE(FailedWith(Internal(message).GetMessageText(out, 8), message->m_oLastError,
                         MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT,
                         "QUIV.CMessageText.GetMessageText"));
  EXPECT_EQ(out, (ByteArray{4, 5}));
  EXPECT_EQ(out.Capacity(), 2u);
}

TEST_F(CMessagetextTest, ACallersArrayWithNoElementsFailsTheLengthGettersAsTheRunTimeDoes) {
  // SetMessageText takes any array unchecked; reading byte 0 of one with no elements is the run
  // time's subscript error.
  ASSERT_TRUE(message->SetMessageText(ByteArray(std::vector<uint8_t>{})));
  int32_t n = 7;
  EXPECT_TRUE(FailedWith(message->GetMessagetextLengthInBytes(n), Record(), kErrSubscriptOutOfRange,
                         "QUIV.CMessageText.GetMessagetextLengthInBytes"));
  EXPECT_EQ(n, 7);
}

TEST_F(CMessagetextTest, WhatToHashIsMessageTextEvenWhenEmpty) {
  int16_t what = -1;
  ASSERT_TRUE(message->WhatToHash(what));
  EXPECT_EQ(what, MESSAGETEXT);
  EXPECT_EQ(what, 6);
  EXPECT_TRUE(message->m_oLastError.IsNothing());
}

TEST_F(CMessagetextTest, AMessageNeverHandsOutAKeyHandle) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2}));
  HCRYPTKEY handle = 1234;
  EXPECT_TRUE(FailedWith(message->GetSessionKeyHandle(handle), Record(),
                         KEY_ERROR_THIS_METHOD_SHOULD_ONLY_BE_CALLED_FROM_A_SESSION_KEY_OBJECT,
                         "QUIV.CMessagetext.IHash_GetSessionKeyHandle"));
  EXPECT_EQ(handle, 1234u);
}

TEST_F(CMessagetextTest, ThroughTheInterfaceTheMessageAnswersAsItself) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{7, 8}));
  const Ref<IHash> hashee = message;
  int16_t what = 0;
  ByteArray data;
  ASSERT_TRUE(hashee->WhatToHash(what));
  ASSERT_TRUE(hashee->GetDataAsByteArray(data));
  EXPECT_EQ(what, MESSAGETEXT);
  EXPECT_EQ(data, (ByteArray{7, 8}));
}

TEST_F(CMessagetextTest, ThePublishedInterfaceClassDeclinesEverything) {
  IHash bare;
  int16_t what = 42;
  ByteArray data{5};
  HCRYPTKEY key = 77;
  EXPECT_FALSE(bare.WhatToHash(what));
  EXPECT_FALSE(bare.GetDataAsByteArray(data));
  EXPECT_FALSE(bare.GetSessionKeyHandle(key));
  EXPECT_EQ(what, 42);
  EXPECT_EQ(data, ByteArray{5});
  EXPECT_EQ(key, 77u);
}

TEST_F(CMessagetextTest, HexStringRoundTrip) {
  ASSERT_TRUE(message->LoadMessageText(u"00FF10A5", STRING_HEX));
  EXPECT_EQ(Bytes(), 4);
  ByteArray out;
  ASSERT_TRUE(message->GetMessageText(out));
  EXPECT_EQ(out, (ByteArray{0x00, 0xFF, 0x10, 0xA5}));
  String text = u"previous";
  ASSERT_TRUE(message->UnloadMessageText(text, STRING_HEX));
  EXPECT_EQ(text.ToUtf8(), "00FF10A5");
}

TEST_F(CMessagetextTest, StringVbKeepsTheCodeUnitsLowByteFirst) {
  ASSERT_TRUE(message->LoadMessageText(u"Hi\u00e9", STRING_VB));
  ByteArray out;
  ASSERT_TRUE(message->GetMessageText(out));
  EXPECT_EQ(out, (ByteArray{'H', 0, 'i', 0, 0xE9, 0}));
  EXPECT_EQ(Chars(), 3);
  String text;
  ASSERT_TRUE(message->UnloadMessageText(text, STRING_VB));
  EXPECT_EQ(text, String(u"Hi\u00e9"));
}

TEST_F(CMessagetextTest, BinaryFileRoundTrip) {
  const std::vector<uint8_t> bytes{0, 1, 2, 0xFE, 0xFF, 0x0A};
  {
    std::ofstream out(m_dir / "in.bin", std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
  ASSERT_TRUE(message->LoadMessageText(PathOf("in.bin"), FILE_BINARY));
  EXPECT_EQ(Bytes(), 6);
  String path = PathOf("out.bin");
  ASSERT_TRUE(message->UnloadMessageText(path, FILE_BINARY));
  EXPECT_EQ(FileBytes(m_dir / "out.bin"), bytes);
}

TEST_F(CMessagetextTest, HexFileRoundTripWithoutLineBreak) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{0xAB, 0x01}));
  String path = PathOf("out.hex");
  ASSERT_TRUE(message->UnloadMessageText(path, FILE_HEX));
  const std::vector<uint8_t> written = FileBytes(m_dir / "out.hex");
  EXPECT_EQ(std::string(written.begin(), written.end()), "AB01");
  ASSERT_TRUE(message->Clear());
  ASSERT_TRUE(message->LoadMessageText(path, FILE_HEX));
  ByteArray out;
  ASSERT_TRUE(message->GetMessageText(out));
  EXPECT_EQ(out, (ByteArray{0xAB, 0x01}));
}

TEST_F(CMessagetextTest, TheKeyContainerIsNoPlaceForAMessage) {
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2}));
  EXPECT_TRUE(FailedWith(message->LoadMessageText(u"x", CURRENT_KEY_CONTAINER), Record(),
                         DATA_FORMAT_ERROR_UNABLE_TO_LOAD, "QUIV.CMessagetext.LoadMessageText"));
  String text = u"kept";
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2}));
  EXPECT_TRUE(FailedWith(message->UnloadMessageText(text, CURRENT_KEY_CONTAINER), Record(),
                         DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD,
                         "QUIV.CMessagetext.UnloadMessageText"));
  EXPECT_EQ(text.ToUtf8(), "kept");
}

TEST_F(CMessagetextTest, AFailedLoadLeavesWhatTheConverterLeft) {
  // The converter empties its destination before it reads, so bad hex ends in the empty message.
  ASSERT_TRUE(message->SetMessageText(ByteArray{1, 2, 3}));
  EXPECT_TRUE(FailedWith(message->LoadMessageText(u"0G", STRING_HEX), Record(),
                         DATA_FORMAT_ERROR_UNABLE_TO_LOAD, "QUIV.CMessagetext.LoadMessageText"));
  EXPECT_EQ(Bytes(), 0);
}

TEST_F(CMessagetextTest, AFailedUnloadLeavesTheMessageAndTheTarget) {
  String text = u"untouched";
  EXPECT_TRUE(FailedWith(message->UnloadMessageText(text, STRING_HEX), Record(),
                         DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD,
                         "QUIV.CMessagetext.UnloadMessageText"));
  EXPECT_EQ(text.ToUtf8(), "untouched");

  ASSERT_TRUE(message->SetMessageText(ByteArray{4, 5}));
  String path = String::FromUtf8((m_dir / "no-such-folder" / "x.hex").string());
  EXPECT_FALSE(message->UnloadMessageText(path, FILE_HEX));
  ByteArray out;
  ASSERT_TRUE(message->GetMessageText(out));
  EXPECT_EQ(out, (ByteArray{4, 5}));
}

TEST_F(CMessagetextTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  const std::map<String, String> variables{{u"PATH_INFO", u"/send.asp"}};
  auto page = MakeRef<MapPageContext>(variables, String(u"id=7"));
  ASSERT_TRUE(message->OnStartPage(page));
  ASSERT_FALSE(message->m_oLastError.IsNothing());
  // The page reaches the record: a later failure names it.
  String text;
  EXPECT_FALSE(message->UnloadMessageText(text, STRING_HEX));
  EXPECT_EQ(message->m_oLastError->m_sWebPageURL.ToUtf8(), "/send.asp?id=7");
}

TEST_F(CMessagetextTest, TheProviderReferenceIsDroppedAtTermination) {
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(Internal(message).SetProvider(provider));
  const long held = provider.UseCount();
  Internal(message).Terminate();
  EXPECT_EQ(provider.UseCount(), held - 1);
  provider->TerminateAll();
}

}  // namespace
}  // namespace quiv
