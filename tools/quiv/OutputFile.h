// OutputFile: where a subcommand writes its result. With -out, the bytes go to a temporary file
// in the same folder (so the final rename stays on one file system), which Commit() fsyncs and
// renames over the target; if the command fails first, the destructor removes the temporary
// file, so a failed run never leaves a half-written or empty output behind and an existing
// file keeps its old content. Without -out (or with "-") the bytes go to standard output as
// they come: a pipe cannot be taken back, which the help texts say.
#ifndef QUIV_TOOLS_QUIV_OUTPUTFILE_H
#define QUIV_TOOLS_QUIV_OUTPUTFILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace quiv::cli {

class OutputFile final {
 public:
  // CommandFailure when the temporary file cannot be made. `mode` is the new file's permission
  // (0600 for private keys).
  explicit OutputFile(const std::optional<std::string>& path, unsigned mode = 0644);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(std::span<const uint8_t> bytes);
  void Write(const std::string& text);
  // Makes the output final: fsync and rename for a file, nothing more for standard output.
  void Commit();
  bool IsFile() const { return m_target.has_value(); }

 private:
  int m_fd = 1;
  std::optional<std::string> m_target;
  std::string m_temporary;
  bool m_committed = false;
};

}  // namespace quiv::cli

#endif
