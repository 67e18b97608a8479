#include "data/CConvert.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "automation/RunTime.h"
#include "automation/RuntimeError.h"
#include "automation/Variant.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"

namespace quiv {
namespace {

// The run time's file errors, with its texts (RuntimeDescription knows only the numbers the
// rest of the library raises).
constexpr int32_t kErrBadFileNumber = 52;
constexpr int32_t kErrPermissionDenied = 70;
constexpr int32_t kErrFileAccess = 75;
constexpr int32_t kErrPathNotFound = 76;

[[noreturn]] void RaiseFileError(int32_t number) {
  const char16_t* text = u"Path/File access error";
  switch (number) {
    case kErrBadFileNumber:
      text = u"Bad file name or number";
      break;
    case kErrPermissionDenied:
      text = u"Permission denied";
      break;
    case kErrPathNotFound:
      text = u"Path not found";
      break;
    default:
      break;
  }
  throw RuntimeError(number, kRuntimeSource, text, LastPlatformError());
}

// errno after a failed open or transfer, as the run time reports it. The binary file statements
// report a refused access as a file access error, the text streams as "Permission denied".
[[noreturn]] void RaiseErrno(int error, bool textStream) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      RaiseFileError(kErrPathNotFound);
    case EACCES:
    case EPERM:
    case EROFS:
      RaiseFileError(textStream ? kErrPermissionDenied : kErrFileAccess);
    default:
      RaiseFileError(kErrFileAccess);
  }
}

constexpr char16_t kHexDigits[] = u"0123456789ABCDEF";

// Value of each code unit below 128 as an upper-case hex digit, -1 for anything else.
constexpr std::array<int8_t, 128> MakeDigitValues() {
  std::array<int8_t, 128> values{};
  for (auto& v : values) v = -1;
  for (int i = 0; i < 16; ++i) values[static_cast<size_t>(kHexDigits[i])] = static_cast<int8_t>(i);
  return values;
}
constexpr std::array<int8_t, 128> kDigitValues = MakeDigitValues();

int DigitValue(char16_t c) {
  return c < kDigitValues.size() ? kDigitValues[c] : -1;
}

// The hex text of `bytes` in one pass: two upper-case digits per byte.
std::u16string EncodeHex(const uint8_t* bytes, size_t count) {
  std::u16string text(count * 2, u'\0');
  char16_t* out = text.data();
  for (size_t i = 0; i < count; ++i) {
    out[2 * i] = kHexDigits[bytes[i] >> 4];
    out[2 * i + 1] = kHexDigits[bytes[i] & 0x0F];
  }
  return text;
}

String SeparatorOf(FINGERPRINT_FORMAT format) {
  switch (format) {
    case SPACES:
      return u" ";
    case HYPHENS:
      return u"-";
    case DOUBLE_HYPHENS:
      return u"--";
    case HYPHENS_SPACED:
      return u" - ";
    case DOUBLE_HYPHENS_SPACED:
      return u" -- ";
    case NOFORMAT:
      return String();
  }
  RaiseQuiv(FINGERPRINT_ERROR_UNKNOWN_FORMAT_SPECIFIED);
}

// The empty array test as written in the routines: upper bound 0 and byte 0. Both halves are
// evaluated, so an array with no elements fails reading its byte 0 (run-time error 9).
bool IsEmptyArray(const ByteArray& bytes) {
  const bool upperBoundIsZero = bytes.UBound() == 0;
  const bool firstByteIsZero = bytes.At(0) == 0;
  return upperBoundIsZero && firstByteIsZero;
}

void ReadAll(int fd, uint8_t* buffer, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t got = ::read(fd, buffer + done, length - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) RaiseErrno(errno, false);
    if (got == 0) break;  // the file shrank: the rest of the buffer stays 0
    done += static_cast<size_t>(got);
  }
}

void WriteAll(int fd, const uint8_t* bytes, size_t length, bool textStream) {
  size_t done = 0;
  while (done < length) {
    const ssize_t put = ::pwrite(fd, bytes + done, length - done, static_cast<off_t>(done));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) RaiseErrno(errno, textStream);
    done += static_cast<size_t>(put);
  }
}

// A descriptor closed when it goes out of scope (the text streams close on every path).
class ScopedFd final {
 public:
  explicit ScopedFd(int fd) : m_fd(fd) {}
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;
  ~ScopedFd() {
    if (m_fd >= 0) ::close(m_fd);
  }
  int get() const { return m_fd; }

 private:
  int m_fd;
};

int OpenOrRaise(const std::string& path, int flags, bool textStream) {
  int fd = -1;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) RaiseErrno(errno, textStream);
  return fd;
}

}  // namespace

CConvert::CConvert() {
  Trap(m_oLastError, u"QUIV.CConvert.Class_Initialize",
       [&] { m_oLastError = MakeRef<CErrHandler>(); });
}

CConvert::~CConvert() {
  CloseAllFiles();
}

bool CConvert::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CConvert.OnStartPage", i_oScript);
}

int CConvert::OpenBinary(const String& i_sPath) {
  const int fd = OpenOrRaise(i_sPath.ToUtf8(), O_RDWR | O_CREAT, false);
  m_anOpenFiles.push_back(fd);
  return fd;
}

void CConvert::CloseAllFiles() noexcept {
  for (const int fd : m_anOpenFiles) ::close(fd);
  m_anOpenFiles.clear();
}

bool CConvert::LoadItem(const String& i_sDataSource, DATA_FORMAT i_nLoadFormat,
                        ByteArray& o_abData) {
  return Trap(
      m_oLastError, u"QUIV.CConvert.LoadItem",
      [&] {
        o_abData.Clear();
        switch (i_nLoadFormat) {
          case FILE_BINARY: {
            const int fd = OpenBinary(i_sDataSource);
            struct stat info {};
            if (::fstat(fd, &info) != 0) RaiseErrno(errno, false);
            // The empty file stays open: this path skips the close-all.
            if (info.st_size == 0) RaiseQuiv(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED);
            std::vector<uint8_t> buffer(static_cast<size_t>(info.st_size));
            ReadAll(fd, buffer.data(), buffer.size());
            CloseAllFiles();
            o_abData = ByteArray(std::move(buffer));
            break;
          }
          case FILE_HEX: {
            String text;
            if (!ReadFileASCIIToString(i_sDataSource, text)) {
              RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_LOAD);
            }
            if (!HexStringToByteArray(text, o_abData)) {
              RaiseQuiv(DATA_FORMAT_ERROR_BYTE_ARRAY_TO_UNLOAD_IS_EMPTY);
            }
            break;
          }
          case STRING_HEX:
          case STRING_VB:
            if (i_sDataSource.IsEmpty()) RaiseQuiv(DATA_FORMAT_ERROR_STRING_TO_LOAD_IS_EMPTY);
            if (i_nLoadFormat == STRING_HEX) {
              if (!HexStringToByteArray(i_sDataSource, o_abData)) {
                RaiseQuiv(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED);
              }
            } else {
              o_abData = ByteArray::FromString(i_sDataSource);
            }
            break;
          default:
            RaiseQuiv(DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED);
        }
        if (IsEmptyArray(o_abData)) RaiseQuiv(DATA_FORMAT_ERROR_WHAT_WAS_LOADED_CONTAINS_NO_DATA);
      },
      [&](CErrHandler& e) {
        e.AddParam(u"Len of byte array", CLng(o_abData.UBound()));
        e.AddParam(u"i_sDataSource", i_sDataSource);
        e.AddParam(u"i_nLoadFormat", static_cast<int32_t>(i_nLoadFormat));
      });
}

bool CConvert::UnloadItem(const ByteArray& i_abData, String& io_sDataSource,
                          DATA_FORMAT i_nUnloadFormat, bool i_fOverwrite) {
  return Trap(
      m_oLastError, u"QUIV.CConvert.UnloadItem",
      [&] {
        if (IsEmptyArray(i_abData)) RaiseQuiv(DATA_FORMAT_ERROR_EMPTY_MESSAGETEXT_CANNOT_PROCEED);
        if (i_nUnloadFormat == STRING_HEX || i_nUnloadFormat == STRING_VB) {
          io_sDataSource = String();
        }
        switch (i_nUnloadFormat) {
          case FILE_BINARY: {
            // Appending asks the length of a file number that is not open yet, which the file
            // facility refuses: only an overwrite gets through.
            if (!i_fOverwrite) RaiseFileError(kErrBadFileNumber);
            const int fd = OpenBinary(io_sDataSource);
            WriteAll(fd, i_abData.data(), i_abData.size(), false);
            CloseAllFiles();
            break;
          }
          case FILE_HEX: {
            const String text(EncodeHex(i_abData.data(), i_abData.size()));
            if (!WriteStringToFileASCII(text, io_sDataSource)) {
              RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD);
            }
            break;
          }
          case STRING_HEX:
            io_sDataSource = String(EncodeHex(i_abData.data(), i_abData.size()));
            break;
          case STRING_VB:
            io_sDataSource = String::FromBytes(i_abData.span());
            break;
          default:
            RaiseQuiv(DATA_FORMAT_ERROR_UNSUPPORTED_MEDIUM_SPECIFIED);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"Len of byte array", CLng(i_abData.UBound()));
        e.AddParam(u"io_sDataSource", io_sDataSource);
        e.AddParam(u"i_nUnloadFormat", static_cast<int32_t>(i_nUnloadFormat));
      });
}

bool CConvert::UnloadFingerprint(const ByteArray& i_abData,
                                 FINGERPRINT_FORMAT io_sFingerprintFormat, String& io_sFingerprint,
                                 DATA_FORMAT i_nUnloadFormat) {
  return Trap(
      m_oLastError, u"QUIV.CConvert.UnloadFingerprint",
      [&] {
        String text;
        if (!UnloadItem(i_abData, text, STRING_HEX, true)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
        }
        if (!FormatFingerprint(text, io_sFingerprintFormat)) {
          RaiseQuiv(FINGERPRINT_ERROR_UNABLE_TO_FORMAT_FINGERPRINT);
        }
        // The formatted text goes out as its own UTF-16 bytes, so the hex forms carry the hex
        // of those units: callers that want the text use STRING_VB.
        const ByteArray units = ByteArray::FromString(text);
        if (!UnloadItem(units, io_sFingerprint, i_nUnloadFormat, true)) {
          RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT);
        }
      },
      [&](CErrHandler& e) {
        e.AddParam(u"io_sFingerprintFormat", static_cast<int32_t>(io_sFingerprintFormat));
        e.AddParam(u"io_sFingerprint", io_sFingerprint);
        e.AddParam(u"i_nUnloadFormat", static_cast<int32_t>(i_nUnloadFormat));
      });
}

bool CConvert::FormatFingerprint(String& io_sFingerprint,
                                 FINGERPRINT_FORMAT io_sFingerprintFormat) {
  return Trap(m_oLastError, u"QUIV.CConvert.FormatFingerprint", [&] {
    if (io_sFingerprint.IsEmpty()) RaiseQuiv(GENERAL_ERROR_EMPTY_INPUT_DATA_SUPPLIED);
    const String separator = SeparatorOf(io_sFingerprintFormat);
    // The length and the position are 16-bit counters: CInt raises the overflow they hit.
    const int16_t length = CInt(io_sFingerprint.Length());
    String result = io_sFingerprint.Left(4) + separator;
    for (int16_t position = 5; position <= length; position = CInt(int32_t{position} + 4)) {
      result += io_sFingerprint.Mid(static_cast<size_t>(position), 4) + separator;
    }
    io_sFingerprint = result.Left(result.Length() - separator.Length());
  });
}

bool CConvert::HexStringToByteArray(const String& i_sHex, ByteArray& o_abData) {
  return Trap(m_oLastError, u"QUIV.CConvert.HexStringToByteArray", [&] {
    const std::u16string& text = i_sHex.u16();
    if (text.size() % 2 != 0) RaiseQuiv(DATA_FORMAT_ERROR_CORRUPT_HEX_FILE);
    if (text.empty()) {
      o_abData = ByteArray();
      return;
    }
    // One table lookup per digit into an array sized once; DeHex runs only for the pair that
    // fails, so its record (and "i_sHex") is exactly what a pair-by-pair decode leaves.
    std::vector<uint8_t> bytes(text.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
      const int high = DigitValue(text[2 * i]);
      const int low = DigitValue(text[2 * i + 1]);
      if ((high | low) >= 0) {
        bytes[i] = static_cast<uint8_t>(high * 16 + low);
        continue;
      }
      int16_t value = 0;
      if (!DeHex(i_sHex.Mid(2 * i + 1, 2), value)) {
        RaiseQuiv(DATA_FORMAT_ERROR_HEX_FILE_UNABLE_TO_BE_CONVERTED_TO_BYTE_ARRAY);
      }
      bytes[i] = static_cast<uint8_t>(value);
    }
    o_abData = ByteArray(std::move(bytes));
  });
}

bool CConvert::DeHex(const String& i_sHex, int16_t& o_nValue) {
  return Trap(
      m_oLastError, u"QUIV.CConvert.DeHex",
      [&] {
        if (i_sHex.Length() != 2) RaiseQuiv(DATA_FORMAT_ERROR_INVALID_HEX_VALUE);
        const int high = DigitValue(i_sHex[0]);
        const int low = DigitValue(i_sHex[1]);
        if (high < 0 || low < 0) RaiseQuiv(DATA_FORMAT_ERROR_INVALID_HEX_VALUE);
        o_nValue = static_cast<int16_t>(high * 16 + low);
      },
      [&](CErrHandler& e) { e.AddParam(u"i_sHex", i_sHex); });
}

bool CConvert::ReadFileASCIIToString(const String& i_sFile, String& o_sData) {
  return Trap(
      m_oLastError, u"QUIV.CConvert.ReadFileASCIIToString",
      [&] {
        const std::string path = i_sFile.ToUtf8();
        struct stat info {};
        // A folder is not a file to the file-system object.
        if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) {
          RaiseQuiv(DATA_FORMAT_ERROR_NOTHING_TO_LOAD);
        }
        const ScopedFd file(OpenOrRaise(path, O_RDONLY, true));
        std::u16string text;
        std::array<uint8_t, 65536> chunk{};
        for (;;) {
          const ssize_t got = ::read(file.get(), chunk.data(), chunk.size());
          if (got < 0 && errno == EINTR) continue;
          if (got < 0) RaiseErrno(errno, true);
          if (got == 0) break;
          // One-byte text: each byte is one character.
          text.append(chunk.begin(), chunk.begin() + got);
        }
        o_sData = String(std::move(text));
      },
      [&](CErrHandler& e) {
        e.AddParam(u"o_sData", o_sData);
        e.AddParam(u"i_sFile", i_sFile);
      });
}

bool CConvert::WriteStringToFileASCII(const String& i_sString, const String& i_sFile) {
  return Trap(m_oLastError, u"QUIV.CConvert.WriteStringToFileASCII", [&] {
    // The stream is created (and an existing file emptied) before anything is written.
    const ScopedFd file(OpenOrRaise(i_sFile.ToUtf8(), O_WRONLY | O_CREAT | O_TRUNC, true));
    const std::u16string& text = i_sString.u16();
    std::vector<uint8_t> bytes(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
      // A one-byte stream cannot carry a character beyond one byte.
      if (text[i] > 0xFF) RaiseRuntime(kErrInvalidProcedureCall);
      bytes[i] = static_cast<uint8_t>(text[i]);
    }
    WriteAll(file.get(), bytes.data(), bytes.size(), true);
  });
}

}  // namespace quiv
