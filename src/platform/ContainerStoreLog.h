// ContainerStoreLog: where the container store says why it refused or repaired something on disk
// (a store folder that is a symbolic link, owned by another user or open to others, a container
// path it cannot remove). The error code tells the caller what failed; the log tells the person
// looking after the machine which path and why. Records go to the system log (syslog, facility
// USER, priority WARNING, prefixed "quiv key store: "); tests install a recording writer.
//
// Ownership and threads: the writer is a process-wide function pointer, read and replaced
// atomically; null means syslog.
#ifndef QUIV_PLATFORM_CONTAINERSTORELOG_H
#define QUIV_PLATFORM_CONTAINERSTORELOG_H

#include <string_view>

namespace quiv::platform {

class ContainerStoreLog final {
 public:
  using Writer = void (*)(std::string_view text);

  // Writes one record. Does not throw.
  static void Warn(std::string_view text);

  // Test only: records go to `writer` instead of syslog; nullptr restores syslog.
  static void SetWriter(Writer writer);
};

}  // namespace quiv::platform

#endif
