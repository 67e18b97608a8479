#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "UsageError.h"

namespace quiv::cli {

OutputFile::OutputFile(const std::optional<std::string>& path, unsigned mode) {
  if (!path || *path == "-") return;
  m_target = *path;
  // mkstemp wants a writable template; the name sits beside the target, hidden by its dot.
  const size_t slash = path->rfind('/');
  const std::string folder = slash == std::string::npos ? "" : path->substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? *path : path->substr(slash + 1);
  std::string pattern = folder + "." + base + ".quiv-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  m_fd = ::mkstemp(name.data());
  if (m_fd < 0) throw CommandFailure("cannot write " + *path + ": " + std::strerror(errno));
  m_temporary = name.data();
  ::fchmod(m_fd, static_cast<mode_t>(mode));
}

OutputFile::~OutputFile() {
  if (!m_target) return;
  if (m_fd >= 0) ::close(m_fd);
  if (!m_committed) ::unlink(m_temporary.c_str());
}

void OutputFile::Write(std::span<const uint8_t> bytes) {
  const uint8_t* data = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    const ssize_t done = ::write(m_fd, data, left);
    if (done < 0) {
      if (errno == EINTR) continue;
      throw CommandFailure("cannot write " + m_target.value_or("standard output") + ": " +
                           std::strerror(errno));
    }
    data += done;
    left -= static_cast<size_t>(done);
  }
}

void OutputFile::Write(const std::string& text) {
  Write(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void OutputFile::Commit() {
  if (!m_target) return;
  const std::string why = "cannot write " + *m_target + ": ";
  if (::fsync(m_fd) != 0) throw CommandFailure(why + std::strerror(errno));
  if (::close(m_fd) != 0) {
    m_fd = -1;
    throw CommandFailure(why + std::strerror(errno));
  }
  m_fd = -1;
  if (::rename(m_temporary.c_str(), m_target->c_str()) != 0) {
    throw CommandFailure(why + std::strerror(errno));
  }
  m_committed = true;
}

}  // namespace quiv::cli
