// CConvert: every data format both ways, the hex text and STRING_VB layouts, the binary and hex
// file rules (creation, no truncation, overwrite, no line break), the fingerprint layouts and
// every failure with its code, source and parameters as the error record shows them.
#include "data/CConvert.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "errors/QuivError.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "support/QuietLog.h"

namespace quiv {
namespace {

namespace fs = std::filesystem;

constexpr char kNoDescription[] = "Runtime error: Application-defined or object-defined error. ";

// The hex text written independently of the converter.
std::string ReferenceHex(const std::vector<uint8_t>& bytes) {
  std::string text;
  char pair[3];
  for (const uint8_t b : bytes) {
    std::snprintf(pair, sizeof pair, "%02X", b);
    text += pair;
  }
  return text;
}

class CConvertTest : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::Platform().SetLastError(0);
    std::string templ = (fs::temp_directory_path() / "quiv-convert-XXXXXX").string();
    ASSERT_NE(::mkdtemp(templ.data()), nullptr);
    m_dir = templ;
    m_convert = MakeRef<CConvert>();
  }
  void TearDown() override {
    m_convert = Nothing;  // closes what the file facility holds before the folder goes
    fs::remove_all(m_dir);
  }

  String PathOf(const std::string& name) const { return String::FromUtf8((m_dir / name).string()); }

  static std::string ReadFile(const String& path) {
    std::ifstream in(path.ToUtf8(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  static void WriteFile(const String& path, const std::string& content) {
    std::ofstream out(path.ToUtf8(), std::ios::binary | std::ios::trunc);
    out << content;
  }

  CErrHandler& Record() const { return *m_convert->m_oLastError; }
  std::string Message() const { return Record().LastError().ToUtf8(); }

  void ExpectFailure(int32_t number, const char16_t* source) const {
    EXPECT_EQ(Record().m_lErrNumber, number);
    EXPECT_EQ(
        Record().m_sProjectName + u"." + Record().m_sClassName + u"." + Record().m_sRoutineName,
        String(source));
  }

  test::QuietLog m_platform;  // failures write nothing to syslog
  platform::ScopedPlatformOverride m_use{m_platform};
  fs::path m_dir;
  Ref<CConvert> m_convert;
};

// --- The enumerations ---------------------------------------------------------------------

TEST(DataFormatTest, DataFormatValues) {
  EXPECT_EQ(FILE_BINARY, 0);
  EXPECT_EQ(FILE_HEX, 1);
  EXPECT_EQ(STRING_HEX, 2);
  EXPECT_EQ(STRING_VB, 3);
  EXPECT_EQ(CURRENT_KEY_CONTAINER, 4);
  static_assert(sizeof(DATA_FORMAT) == 4 && sizeof(FINGERPRINT_FORMAT) == 4);
}

TEST(DataFormatTest, FingerprintFormatValues) {
  EXPECT_EQ(SPACES, 0);
  EXPECT_EQ(HYPHENS, 1);
  EXPECT_EQ(DOUBLE_HYPHENS, 2);
  EXPECT_EQ(HYPHENS_SPACED, 3);
  EXPECT_EQ(DOUBLE_HYPHENS_SPACED, 4);
  EXPECT_EQ(NOFORMAT, 5);
}

// --- Creation and the page ------------------------------------------------------------------

TEST_F(CConvertTest, CreationMakesTheRecord) {
  ASSERT_FALSE(m_convert->m_oLastError.IsNothing());
  EXPECT_EQ(Record().m_lErrNumber, 0);
  EXPECT_EQ(m_convert->TypeName(), String(u"CConvert"));
  EXPECT_EQ(m_convert->OpenFileCount(), 0u);
}

TEST_F(CConvertTest, OnStartPageHandsThePageToTheRecord) {
  m_convert->m_oLastError = Nothing;
  const Ref<IPageContext> page = MakeRef<MapPageContext>(
      std::map<String, String>{{u"PATH_INFO", u"/sign.asp"}, {u"LOCAL_ADDR", u"10.0.0.1"}}, u"a=1");
  EXPECT_TRUE(m_convert->OnStartPage(page));
  ASSERT_FALSE(m_convert->m_oLastError.IsNothing());
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(u"", STRING_HEX, out));
  EXPECT_EQ(Record().m_sWebPageURL, String(u"/sign.asp?a=1"));
  EXPECT_EQ(Record().m_sWebIP, String(u"10.0.0.1"));
}

// --- STRING_HEX ----------------------------------------------------------------------------

TEST_F(CConvertTest, UnloadStringHexIsUpperCaseWithLeadingZero) {
  String text = u"previous";
  EXPECT_TRUE(m_convert->UnloadItem(ByteArray{0x0A, 0xFF}, text, STRING_HEX, true));
  EXPECT_EQ(text, String(u"0AFF"));
}

TEST_F(CConvertTest, EveryByteValueRoundTripsThroughStringHex) {
  std::vector<uint8_t> all(256);
  for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<uint8_t>(255 - i);
  String text;
  ASSERT_TRUE(m_convert->UnloadItem(ByteArray(all), text, STRING_HEX, true));
  EXPECT_EQ(text.ToUtf8(), ReferenceHex(all));
  ByteArray back;
  ASSERT_TRUE(m_convert->LoadItem(text, STRING_HEX, back));
  EXPECT_EQ(back.ToVector(), all);
}

TEST_F(CConvertTest, LargeRandomDataRoundTripsThroughStringHex) {
  std::mt19937 rng(20240501);
  std::vector<uint8_t> data(1 << 20);
  for (auto& b : data) b = static_cast<uint8_t>(rng());
  ByteArray loaded;
  ASSERT_TRUE(m_convert->LoadItem(String::FromUtf8(ReferenceHex(data)), STRING_HEX, loaded));
  EXPECT_EQ(loaded.ToVector(), data);
  String text;
  ASSERT_TRUE(m_convert->UnloadItem(loaded, text, STRING_HEX, true));
  EXPECT_EQ(text.ToUtf8(), ReferenceHex(data));
}

TEST_F(CConvertTest, LoadStringHexRejectsLowerCase) {
  ByteArray out{1, 2, 3};
  EXPECT_FALSE(m_convert->LoadItem(u"0aff", STRING_HEX, out));
  EXPECT_EQ(out, ByteArray());  // reset to the empty array before anything else
  ExpectFailure(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED, u"QUIV.CConvert.LoadItem");
  // DeHex recorded the offending pair before the load raised its own code.
  EXPECT_EQ(Message(), std::string("QUIV.CConvert.LoadItem (i_sHex=0a) (Len of byte array=0) "
                                   "(i_sDataSource=0aff) (i_nLoadFormat=2) : "
                                   "DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED. ") +
                           kNoDescription);
}

TEST_F(CConvertTest, LoadStringHexRejectsABadPairAfterGoodOnes) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(u"0102G304", STRING_HEX, out));
  EXPECT_NE(Message().find("(i_sHex=G3)"), std::string::npos) << Message();
}

TEST_F(CConvertTest, LoadStringHexRejectsOddLength) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(u"0AF", STRING_HEX, out));
  ExpectFailure(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED, u"QUIV.CConvert.LoadItem");
  // No pair was looked at.
  EXPECT_EQ(Message().find("i_sHex"), std::string::npos);
}

TEST_F(CConvertTest, LoadEmptyStringFails) {
  for (const DATA_FORMAT format : {STRING_HEX, STRING_VB}) {
    m_convert = MakeRef<CConvert>();
    ByteArray out;
    EXPECT_FALSE(m_convert->LoadItem(u"", format, out));
    ExpectFailure(DATA_FORMAT_ERROR_STRING_TO_LOAD_IS_EMPTY, u"QUIV.CConvert.LoadItem");
    EXPECT_EQ(Message(),
              "QUIV.CConvert.LoadItem (Len of byte array=0) (i_sDataSource=) "
              "(i_nLoadFormat=" +
                  std::to_string(format) + ") : DATA_FORMAT_ERROR_STRING_TO_LOAD_IS_EMPTY. " +
                  kNoDescription);
  }
}

TEST_F(CConvertTest, LoadingASingleZeroByteIsNoData) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(u"00", STRING_HEX, out));
  ExpectFailure(DATA_FORMAT_ERROR_WHAT_WAS_LOADED_CONTAINS_NO_DATA, u"QUIV.CConvert.LoadItem");
  EXPECT_TRUE(m_convert->LoadItem(u"0000", STRING_HEX, out));
  EXPECT_EQ(out, (ByteArray{0, 0}));
  EXPECT_TRUE(m_convert->LoadItem(u"01", STRING_HEX, out));
  EXPECT_EQ(out, ByteArray{1});
}

// --- STRING_VB -----------------------------------------------------------------------------

TEST_F(CConvertTest, StringVbCarriesTheCodeUnitsLowByteFirst) {
  ByteArray out;
  ASSERT_TRUE(m_convert->LoadItem(u"AB", STRING_VB, out));
  EXPECT_EQ(out, (ByteArray{0x41, 0x00, 0x42, 0x00}));
  String text = u"old";
  ASSERT_TRUE(m_convert->UnloadItem(out, text, STRING_VB, true));
  EXPECT_EQ(text, String(u"AB"));
}

TEST_F(CConvertTest, StringVbMakesNoCodePageConversion) {
  ByteArray out;
  ASSERT_TRUE(m_convert->LoadItem(String(std::u16string{0x20AC, 0xD800}), STRING_VB, out));
  EXPECT_EQ(out, (ByteArray{0xAC, 0x20, 0x00, 0xD8}));
}

TEST_F(CConvertTest, StringVbKeepsAnOddByteCount) {
  const ByteArray odd{0x01, 0x02, 0x03};
  String text;
  ASSERT_TRUE(m_convert->UnloadItem(odd, text, STRING_VB, true));
  EXPECT_EQ(text.ByteLength(), 3u);
  ByteArray back;
  ASSERT_TRUE(m_convert->LoadItem(text, STRING_VB, back));
  EXPECT_EQ(back, odd);
}

// --- UnloadItem failures --------------------------------------------------------------------

TEST_F(CConvertTest, UnloadOfTheEmptyArrayFailsAndLeavesTheTarget) {
  String text = u"keep me";
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray(), text, STRING_HEX, true));
  EXPECT_EQ(text, String(u"keep me"));
  ExpectFailure(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED, u"QUIV.CConvert.UnloadItem");
  EXPECT_EQ(Message(), std::string("QUIV.CConvert.UnloadItem (Len of byte array=0) "
                                   "(io_sDataSource=keep me) (i_nUnloadFormat=2) : "
                                   "DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED. ") +
                           kNoDescription);
}

TEST_F(CConvertTest, UnloadOfAnArrayWithoutElementsFailsReadingItsFirstByte) {
  String text;
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray(std::vector<uint8_t>{}), text, STRING_HEX, true));
  ExpectFailure(kErrSubscriptOutOfRange, u"QUIV.CConvert.UnloadItem");
  EXPECT_NE(Message().find("(Len of byte array=-1)"), std::string::npos) << Message();
}

TEST_F(CConvertTest, LenOfByteArrayCarriesTheUpperBoundNotTheLength) {
  String text = u"x";
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray{1, 2, 3}, text, static_cast<DATA_FORMAT>(7), true));
  ExpectFailure(DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED, u"QUIV.CConvert.UnloadItem");
  EXPECT_EQ(Message(), std::string("QUIV.CConvert.UnloadItem (Len of byte array=2) "
                                   "(io_sDataSource=x) (i_nUnloadFormat=7) : "
                                   "DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED. ") +
                           kNoDescription);
}

TEST_F(CConvertTest, CurrentKeyContainerIsRefusedBothWays) {
  ByteArray out{7};
  EXPECT_FALSE(m_convert->LoadItem(u"0A", CURRENT_KEY_CONTAINER, out));
  ExpectFailure(DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED, u"QUIV.CConvert.LoadItem");
  EXPECT_EQ(out, ByteArray());

  m_convert = MakeRef<CConvert>();
  String target = u"c";
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray{1}, target, CURRENT_KEY_CONTAINER, true));
  ExpectFailure(DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED, u"QUIV.CConvert.UnloadItem");
  EXPECT_EQ(target, String(u"c"));

  m_convert = MakeRef<CConvert>();
  EXPECT_FALSE(m_convert->UnloadFingerprint(ByteArray{1}, HYPHENS, target, CURRENT_KEY_CONTAINER));
  ExpectFailure(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT,
                u"QUIV.CConvert.UnloadFingerprint");
}

TEST_F(CConvertTest, NegativeAndUnknownFormatsAreRefused) {
  for (const int32_t value : {-1, 5, 1000}) {
    m_convert = MakeRef<CConvert>();
    ByteArray out;
    EXPECT_FALSE(m_convert->LoadItem(u"0A", static_cast<DATA_FORMAT>(value), out));
    ExpectFailure(DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED, u"QUIV.CConvert.LoadItem");
    EXPECT_NE(Message().find("(i_nLoadFormat=" + std::to_string(value) + ")"), std::string::npos);
  }
}

// --- FILE_BINARY ---------------------------------------------------------------------------

TEST_F(CConvertTest, BinaryFileRoundTrip) {
  const String path = PathOf("data.bin");
  const ByteArray data{0x00, 0x01, 0xFE, 0xFF, 0x0A, 0x0D};
  String target = path;
  ASSERT_TRUE(m_convert->UnloadItem(data, target, FILE_BINARY, true));
  EXPECT_EQ(target, path);
  EXPECT_EQ(ReadFile(path), std::string("\x00\x01\xFE\xFF\x0A\x0D", 6));
  ByteArray back;
  ASSERT_TRUE(m_convert->LoadItem(path, FILE_BINARY, back));
  EXPECT_EQ(back, data);
  EXPECT_EQ(m_convert->OpenFileCount(), 0u);
}

TEST_F(CConvertTest, BinaryUnloadDoesNotTruncate) {
  const String path = PathOf("long.bin");
  WriteFile(path, "0123456789");
  String target = path;
  ASSERT_TRUE(m_convert->UnloadItem(ByteArray{'a', 'b', 'c'}, target, FILE_BINARY, true));
  EXPECT_EQ(ReadFile(path), "abc3456789");
  ByteArray back;
  ASSERT_TRUE(m_convert->LoadItem(path, FILE_BINARY, back));
  EXPECT_EQ(back.size(), 10u);
}

TEST_F(CConvertTest, BinaryUnloadCreatesAMissingFile) {
  const String path = PathOf("new.bin");
  String target = path;
  ASSERT_TRUE(m_convert->UnloadItem(ByteArray{9, 8}, target, FILE_BINARY, true));
  EXPECT_EQ(ReadFile(path), "\x09\x08");
}

TEST_F(CConvertTest, BinaryUnloadWithoutOverwriteFailsBeforeTouchingTheFile) {
  const String path = PathOf("append.bin");
  String target = path;
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray{1}, target, FILE_BINARY, false));
  ExpectFailure(52, u"QUIV.CConvert.UnloadItem");
  EXPECT_EQ(Record().m_sErrDescription, String(u"Bad file name or number"));
  EXPECT_FALSE(fs::exists(path.ToUtf8()));
  // The other formats ignore the flag.
  String text;
  EXPECT_TRUE(m_convert->UnloadItem(ByteArray{1}, text, STRING_HEX, false));
  EXPECT_EQ(text, String(u"01"));
}

TEST_F(CConvertTest, BinaryLoadOfAMissingPathLeavesAnEmptyFileAndFails) {
  const String path = PathOf("missing.bin");
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(path, FILE_BINARY, out));
  ExpectFailure(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED, u"QUIV.CConvert.LoadItem");
  EXPECT_EQ(Message(),
            "QUIV.CConvert.LoadItem (Len of byte array=0) (i_sDataSource=" + path.ToUtf8() +
                ") (i_nLoadFormat=0) : "
                "DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED. " +
                kNoDescription);
  ASSERT_TRUE(fs::exists(path.ToUtf8()));
  EXPECT_EQ(fs::file_size(path.ToUtf8()), 0u);
  // That path skips the close: the file stays open until the next close-all.
  EXPECT_EQ(m_convert->OpenFileCount(), 1u);
  const String other = PathOf("other.bin");
  WriteFile(other, "x");
  ASSERT_TRUE(m_convert->LoadItem(other, FILE_BINARY, out));
  EXPECT_EQ(m_convert->OpenFileCount(), 0u);
}

TEST_F(CConvertTest, BinaryLoadOfAFileHoldingOneZeroByteIsNoData) {
  const String path = PathOf("zero.bin");
  WriteFile(path, std::string(1, '\0'));
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(path, FILE_BINARY, out));
  ExpectFailure(DATA_FORMAT_ERROR_WHAT_WAS_LOADED_CONTAINS_NO_DATA, u"QUIV.CConvert.LoadItem");
}

TEST_F(CConvertTest, BinaryLoadInAMissingFolderIsPathNotFound) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(PathOf("nowhere/x.bin"), FILE_BINARY, out));
  ExpectFailure(76, u"QUIV.CConvert.LoadItem");
  EXPECT_EQ(Record().m_sErrDescription, String(u"Path not found"));
}

TEST_F(CConvertTest, BinaryUnloadInAMissingFolderIsPathNotFound) {
  String target = PathOf("nowhere/x.bin");
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray{1, 2}, target, FILE_BINARY, true));
  ExpectFailure(76, u"QUIV.CConvert.UnloadItem");
  EXPECT_EQ(Record().m_sErrDescription, String(u"Path not found"));
  EXPECT_FALSE(fs::exists((m_dir / "nowhere").string()));
}

TEST_F(CConvertTest, BinaryUnloadClosesEveryFileTheFacilityHolds) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(PathOf("empty.bin"), FILE_BINARY, out));
  ASSERT_EQ(m_convert->OpenFileCount(), 1u);  // the empty file's load skipped the close
  String target = PathOf("written.bin");
  ASSERT_TRUE(m_convert->UnloadItem(ByteArray{7}, target, FILE_BINARY, true));
  EXPECT_EQ(m_convert->OpenFileCount(), 0u);
}

TEST_F(CConvertTest, BinaryLoadOfAFolderIsAFileAccessError) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(String::FromUtf8(m_dir.string()), FILE_BINARY, out));
  ExpectFailure(75, u"QUIV.CConvert.LoadItem");
}

// --- FILE_HEX ------------------------------------------------------------------------------

TEST_F(CConvertTest, HexFileHasNoLineBreakAndLoadsBack) {
  const String path = PathOf("data.hex");
  String target = path;
  ASSERT_TRUE(m_convert->UnloadItem(ByteArray{0x0A, 0xFF, 0x00}, target, FILE_HEX, true));
  EXPECT_EQ(ReadFile(path), "0AFF00");
  ByteArray back;
  ASSERT_TRUE(m_convert->LoadItem(path, FILE_HEX, back));
  EXPECT_EQ(back, (ByteArray{0x0A, 0xFF, 0x00}));
}

TEST_F(CConvertTest, HexUnloadReplacesALongerFile) {
  const String path = PathOf("old.hex");
  WriteFile(path, "0102030405060708");
  String target = path;
  ASSERT_TRUE(m_convert->UnloadItem(ByteArray{0xAB}, target, FILE_HEX, true));
  EXPECT_EQ(ReadFile(path), "AB");
}

TEST_F(CConvertTest, HexFileEndingWithALineBreakFails) {
  for (const char* ending : {"\n", "\r\n"}) {
    m_convert = MakeRef<CConvert>();
    const String path = PathOf("edited.hex");
    WriteFile(path, std::string("0AFF") + ending);
    ByteArray out;
    EXPECT_FALSE(m_convert->LoadItem(path, FILE_HEX, out)) << ending;
    // The load reports the code it has always used here.
    ExpectFailure(DATA_FORMAT_ERROR_BYTE_ARRAY_TO_UNLOAD_IS_EMPTY, u"QUIV.CConvert.LoadItem");
  }
}

TEST_F(CConvertTest, HexFileWithLowerCaseDigitsFails) {
  const String path = PathOf("lower.hex");
  WriteFile(path, "0aff");
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(path, FILE_HEX, out));
  ExpectFailure(DATA_FORMAT_ERROR_BYTE_ARRAY_TO_UNLOAD_IS_EMPTY, u"QUIV.CConvert.LoadItem");
  EXPECT_NE(Message().find("(i_sHex=0a)"), std::string::npos);
}

TEST_F(CConvertTest, MissingHexFileIsUnableToLoad) {
  const String path = PathOf("absent.hex");
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(path, FILE_HEX, out));
  ExpectFailure(DATA_FORMAT_ERROR_UNABLE_TO_LOAD, u"QUIV.CConvert.LoadItem");
  EXPECT_EQ(Message(), "QUIV.CConvert.LoadItem (o_sData=) (i_sFile=" + path.ToUtf8() +
                           ") (Len of byte array=0) (i_sDataSource=" + path.ToUtf8() +
                           ") (i_nLoadFormat=1) : DATA_FORMAT_ERROR_UNABLE_TO_LOAD. " +
                           kNoDescription);
  EXPECT_FALSE(fs::exists(path.ToUtf8()));  // the text read creates nothing
}

TEST_F(CConvertTest, EmptyHexFileLoadsNothing) {
  const String path = PathOf("empty.hex");
  WriteFile(path, "");
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(path, FILE_HEX, out));
  ExpectFailure(DATA_FORMAT_ERROR_WHAT_WAS_LOADED_CONTAINS_NO_DATA, u"QUIV.CConvert.LoadItem");
}

TEST_F(CConvertTest, HexUnloadIntoAMissingFolderIsUnableToUnload) {
  String target = PathOf("nowhere/x.hex");
  EXPECT_FALSE(m_convert->UnloadItem(ByteArray{1}, target, FILE_HEX, true));
  ExpectFailure(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD, u"QUIV.CConvert.UnloadItem");
}

// --- The text file routines -----------------------------------------------------------------

TEST_F(CConvertTest, ReadFileReadsEveryByteAsOneCharacter) {
  const String path = PathOf("text.txt");
  WriteFile(path, std::string("A\r\n\xE9", 4));
  String text = u"previous";
  ASSERT_TRUE(m_convert->ReadFileASCIIToString(path, text));
  EXPECT_EQ(text, String(u"A\r\n\u00E9"));
}

TEST_F(CConvertTest, ReadFileOfAFolderIsNothingToLoad) {
  String text = u"prev";
  EXPECT_FALSE(m_convert->ReadFileASCIIToString(String::FromUtf8(m_dir.string()), text));
  ExpectFailure(DATA_FORMAT_ERROR_NOTHING_TO_LOAD, u"QUIV.CConvert.ReadFileASCIIToString");
  EXPECT_EQ(Message(),
            "QUIV.CConvert.ReadFileASCIIToString (o_sData=prev) (i_sFile=" + m_dir.string() +
                ") : DATA_FORMAT_ERROR_NOTHING_TO_LOAD. " + kNoDescription);
}

TEST_F(CConvertTest, WriteFileWritesOneBytePerCharacterWithoutALineBreak) {
  const String path = PathOf("out.txt");
  ASSERT_TRUE(m_convert->WriteStringToFileASCII(u"AB\u00FF", path));
  EXPECT_EQ(ReadFile(path), "AB\xFF");
}

TEST_F(CConvertTest, WriteFileRefusesACharacterBeyondOneByte) {
  const String path = PathOf("wide.txt");
  EXPECT_FALSE(m_convert->WriteStringToFileASCII(u"A\u20AC", path));
  ExpectFailure(kErrInvalidProcedureCall, u"QUIV.CConvert.WriteStringToFileASCII");
  EXPECT_EQ(Message(),
            "QUIV.CConvert.WriteStringToFileASCII : Runtime error: Invalid procedure "
            "call or argument. ");
}

// --- DeHex and HexStringToByteArray ---------------------------------------------------------

TEST_F(CConvertTest, DeHexValues) {
  int16_t value = -1;
  ASSERT_TRUE(m_convert->DeHex(u"00", value));
  EXPECT_EQ(value, 0);
  ASSERT_TRUE(m_convert->DeHex(u"9A", value));
  EXPECT_EQ(value, 0x9A);
  ASSERT_TRUE(m_convert->DeHex(u"FF", value));
  EXPECT_EQ(value, 255);
  EXPECT_EQ(Record().m_lErrNumber, 0);
}

TEST_F(CConvertTest, DeHexRefusals) {
  for (const char16_t* bad : {u"", u"A", u"ABC", u"a0", u"0f", u"G0", u"0 ", u"\u0660\u0661"}) {
    m_convert = MakeRef<CConvert>();
    int16_t value = 77;
    EXPECT_FALSE(m_convert->DeHex(bad, value));
    EXPECT_EQ(value, 77);
    ExpectFailure(DATA_FORMAT_ERROR_INVALID_HEX_VALUE, u"QUIV.CConvert.DeHex");
    EXPECT_EQ(Message(), "QUIV.CConvert.DeHex (i_sHex=" + String(bad).ToUtf8() +
                             ") : DATA_FORMAT_ERROR_INVALID_HEX_VALUE. " + kNoDescription);
  }
}

TEST_F(CConvertTest, HexStringToByteArrayOfNothingIsTheEmptyArray) {
  ByteArray out{5, 6};
  ASSERT_TRUE(m_convert->HexStringToByteArray(u"", out));
  EXPECT_EQ(out, ByteArray());
  EXPECT_TRUE(out.IsEmpty());
}

TEST_F(CConvertTest, HexStringToByteArrayFailuresLeaveTheCallersArray) {
  ByteArray out{5, 6};
  EXPECT_FALSE(m_convert->HexStringToByteArray(u"ABC", out));
  ExpectFailure(DATA_FORMAT_ERROR_CORRUPT_HEX_FILE, u"QUIV.CConvert.HexStringToByteArray");
  EXPECT_EQ(out, (ByteArray{5, 6}));

  m_convert = MakeRef<CConvert>();
  EXPECT_FALSE(m_convert->HexStringToByteArray(u"ABzz", out));
  ExpectFailure(DATA_FORMAT_ERROR_HEX_FILE_UNABLE_TO_BE_CONVERTED_TO_BYTE_ARRAY,
                u"QUIV.CConvert.HexStringToByteArray");
  EXPECT_EQ(Message(), std::string("QUIV.CConvert.HexStringToByteArray (i_sHex=zz) : "
                                   "DATA_FORMAT_ERROR_HEX_FILE_UNABLE_TO_BE_CONVERTED_TO_BYTE_"
                                   "ARRAY. ") +
                           kNoDescription);
  EXPECT_EQ(out, (ByteArray{5, 6}));
}

// --- Fingerprints ---------------------------------------------------------------------------

TEST_F(CConvertTest, FingerprintLayouts) {
  const ByteArray data{0x01, 0x23, 0x45, 0x67, 0x89};
  const std::vector<std::pair<FINGERPRINT_FORMAT, const char16_t*>> cases = {
      {SPACES, u"0123 4567 89"},
      {HYPHENS, u"0123-4567-89"},
      {DOUBLE_HYPHENS, u"0123--4567--89"},
      {HYPHENS_SPACED, u"0123 - 4567 - 89"},
      {DOUBLE_HYPHENS_SPACED, u"0123 -- 4567 -- 89"},
      {NOFORMAT, u"0123456789"},
  };
  for (const auto& [format, expected] : cases) {
    String fingerprint;
    ASSERT_TRUE(m_convert->UnloadFingerprint(data, format, fingerprint, STRING_VB)) << format;
    EXPECT_EQ(fingerprint, String(expected)) << format;
  }
}

TEST_F(CConvertTest, FingerprintOfWholeGroupsHasNoTrailingSeparator) {
  String fingerprint;
  ASSERT_TRUE(m_convert->UnloadFingerprint(ByteArray{0xDE, 0xAD, 0xBE, 0xEF}, HYPHENS, fingerprint,
                                           STRING_VB));
  EXPECT_EQ(fingerprint, String(u"DEAD-BEEF"));
  ASSERT_TRUE(
      m_convert->UnloadFingerprint(ByteArray{0x7F}, DOUBLE_HYPHENS_SPACED, fingerprint, STRING_VB));
  EXPECT_EQ(fingerprint, String(u"7F"));
}

TEST_F(CConvertTest, FingerprintInTheHexFormsIsTheHexOfItsCharacters) {
  String fingerprint;
  ASSERT_TRUE(m_convert->UnloadFingerprint(ByteArray{0xAB}, HYPHENS, fingerprint, STRING_HEX));
  EXPECT_EQ(fingerprint, String(u"41004200"));
  const String path = PathOf("fp.hex");
  String target = path;
  ASSERT_TRUE(m_convert->UnloadFingerprint(ByteArray{0xAB, 0xCD, 0xEF}, SPACES, target, FILE_HEX));
  EXPECT_EQ(ReadFile(path), ReferenceHex({'A', 0, 'B', 0, 'C', 0, 'D', 0, ' ', 0, 'E', 0, 'F', 0}));
}

TEST_F(CConvertTest, FingerprintWithAnUnknownFormatFails) {
  String fingerprint = u"before";
  EXPECT_FALSE(m_convert->UnloadFingerprint(
      ByteArray{0x01, 0x23}, static_cast<FINGERPRINT_FORMAT>(6), fingerprint, STRING_VB));
  ExpectFailure(FINGERPRINT_ERROR_UNABLE_TO_FORMAT_FINGERPRINT, u"QUIV.CConvert.UnloadFingerprint");
  EXPECT_EQ(fingerprint, String(u"before"));
  EXPECT_EQ(Message(), std::string("QUIV.CConvert.UnloadFingerprint (io_sFingerprintFormat=6) "
                                   "(io_sFingerprint=before) (i_nUnloadFormat=3) : "
                                   "FINGERPRINT_ERROR_UNABLE_TO_FORMAT_FINGERPRINT. ") +
                           kNoDescription);
}

TEST_F(CConvertTest, FingerprintOfTheEmptyArrayFails) {
  String fingerprint;
  EXPECT_FALSE(m_convert->UnloadFingerprint(ByteArray(), HYPHENS, fingerprint, STRING_VB));
  ExpectFailure(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT,
                u"QUIV.CConvert.UnloadFingerprint");
  // The inner unload recorded its own parameters first.
  EXPECT_NE(Message().find("(Len of byte array=0) (io_sDataSource=) (i_nUnloadFormat=2) "
                           "(io_sFingerprintFormat=1)"),
            std::string::npos)
      << Message();
}

TEST_F(CConvertTest, FormatFingerprintOfNothingFails) {
  String text;
  EXPECT_FALSE(m_convert->FormatFingerprint(text, HYPHENS));
  ExpectFailure(GENERAL_ERROR_EMPTY_INPUT_DATA_SUPPLIED, u"QUIV.CConvert.FormatFingerprint");
  EXPECT_EQ(Message(), std::string("QUIV.CConvert.FormatFingerprint : "
                                   "GENERAL_ERROR_EMPTY_INPUT_DATA_SUPPLIED. ") +
                           kNoDescription);
}

TEST_F(CConvertTest, FormatFingerprintRefusesAnUnknownFormat) {
  for (const int32_t value : {-1, 6}) {
    m_convert = MakeRef<CConvert>();
    String text = u"ABCD";
    EXPECT_FALSE(m_convert->FormatFingerprint(text, static_cast<FINGERPRINT_FORMAT>(value)));
    ExpectFailure(FINGERPRINT_ERROR_UNKNOWN_FORMAT_SPECIFIED, u"QUIV.CConvert.FormatFingerprint");
    EXPECT_EQ(text, String(u"ABCD"));
  }
}

TEST_F(CConvertTest, FormatFingerprintGroupsAnyTextInFours) {
  String text = u"ABCDEFGHI";
  ASSERT_TRUE(m_convert->FormatFingerprint(text, HYPHENS_SPACED));
  EXPECT_EQ(text, String(u"ABCD - EFGH - I"));
  text = u"AB";
  ASSERT_TRUE(m_convert->FormatFingerprint(text, SPACES));
  EXPECT_EQ(text, String(u"AB"));
}

TEST_F(CConvertTest, FormatFingerprintOverflowsItsSixteenBitCounters) {
  // The last group starts at 32761; the counter then steps to 32765, still in range.
  String text(std::u16string(32764, u'A'));
  ASSERT_TRUE(m_convert->FormatFingerprint(text, NOFORMAT));
  EXPECT_EQ(text.Length(), 32764u);
  // A group starting at 32765 makes the counter step past 32767.
  for (const size_t length : {size_t{32765}, size_t{32767}, size_t{32768}, size_t{40000}}) {
    m_convert = MakeRef<CConvert>();
    String longer(std::u16string(length, u'A'));
    EXPECT_FALSE(m_convert->FormatFingerprint(longer, HYPHENS)) << length;
    ExpectFailure(kErrOverflow, u"QUIV.CConvert.FormatFingerprint");
    EXPECT_EQ(longer.Length(), length);
  }
}

// --- The record across failures -------------------------------------------------------------

TEST_F(CConvertTest, ASuccessAfterAFailureLeavesTheRecordAsItWas) {
  ByteArray out;
  EXPECT_FALSE(m_convert->LoadItem(u"0", STRING_HEX, out));
  const std::string message = Message();
  EXPECT_TRUE(m_convert->LoadItem(u"0102", STRING_HEX, out));
  EXPECT_EQ(Message(), message);
  EXPECT_EQ(Record().m_lErrNumber, DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED);
}

}  // namespace
}  // namespace quiv
