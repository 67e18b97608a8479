#include "InputStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "UsageError.h"

namespace quiv::cli {

namespace {

// Small files only: keys, signatures and pass phrases are read whole.
constexpr size_t kSmallFileLimit = 16u << 20;

}  // namespace

InputStream::InputStream(const std::optional<std::string>& path) {
  if (!path || *path == "-") {
    m_name = "(stdin)";
  } else {
    m_fd = ::open(path->c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) throw CommandFailure("cannot read " + *path + ": " + std::strerror(errno));
    m_owned = true;
    m_name = *path;
  }
  struct stat st {};
  if (::fstat(m_fd, &st) == 0 && S_ISREG(st.st_mode)) m_size = static_cast<uint64_t>(st.st_size);
}

InputStream::~InputStream() {
  if (m_owned) ::close(m_fd);
}

size_t InputStream::Read(uint8_t* buffer, size_t size) {
  size_t filled = 0;
  while (filled < size) {
    const ssize_t got = ::read(m_fd, buffer + filled, size - filled);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      throw CommandFailure("cannot read " + m_name + ": " + std::strerror(errno));
    }
    filled += static_cast<size_t>(got);
  }
  return filled;
}

std::vector<uint8_t> InputStream::ReadAll() {
  std::vector<uint8_t> data;
  uint8_t buffer[65536];
  for (size_t got; (got = Read(buffer, sizeof buffer)) != 0;) {
    data.insert(data.end(), buffer, buffer + got);
  }
  return data;
}

std::vector<uint8_t> ReadSmallFile(const std::string& path, const std::string& what) {
  InputStream in(path);
  std::vector<uint8_t> data;
  uint8_t buffer[65536];
  for (size_t got; (got = in.Read(buffer, sizeof buffer)) != 0;) {
    data.insert(data.end(), buffer, buffer + got);
    if (data.size() > kSmallFileLimit) throw CommandFailure(what + " " + path + " is too large");
  }
  if (data.empty()) throw CommandFailure(what + " " + path + " is empty");
  return data;
}

}  // namespace quiv::cli
