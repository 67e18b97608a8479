// InputStream: where a subcommand reads its data: a file named by -in, or standard input when
// there is none (or it is "-"). Reads go straight to the file descriptor in whole buffers, so a
// pass phrase read from the first line of standard input (PassPhrase) leaves the rest of the
// stream to the data, byte for byte.
#ifndef QUIV_TOOLS_QUIV_INPUTSTREAM_H
#define QUIV_TOOLS_QUIV_INPUTSTREAM_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quiv::cli {

class InputStream final {
 public:
  // Opens the file (CommandFailure when it cannot be read); nullopt or "-" is standard input.
  explicit InputStream(const std::optional<std::string>& path);
  ~InputStream();
  InputStream(const InputStream&) = delete;
  InputStream& operator=(const InputStream&) = delete;

  // Fills `buffer` with up to `size` bytes, fewer only at the end of the data; 0 at the end.
  size_t Read(uint8_t* buffer, size_t size);
  // Everything that is left.
  std::vector<uint8_t> ReadAll();
  // The size of a regular file (for the progress bar); nullopt for pipes and terminals.
  std::optional<uint64_t> Size() const { return m_size; }
  const std::string& Name() const { return m_name; }

 private:
  int m_fd = 0;
  bool m_owned = false;
  std::optional<uint64_t> m_size;
  std::string m_name;
};

// The whole content of a small file (keys, signatures), CommandFailure naming `what` otherwise.
std::vector<uint8_t> ReadSmallFile(const std::string& path, const std::string& what);

}  // namespace quiv::cli

#endif
