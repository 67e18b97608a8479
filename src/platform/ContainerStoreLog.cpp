#include "platform/ContainerStoreLog.h"

#include <syslog.h>

#include <atomic>

namespace quiv::platform {
namespace {

std::atomic<ContainerStoreLog::Writer> g_writer{nullptr};

}  // namespace

void ContainerStoreLog::Warn(std::string_view text) {
  if (const Writer writer = g_writer.load()) {
    writer(text);
    return;
  }
  ::syslog(LOG_USER | LOG_WARNING, "quiv key store: %.*s", static_cast<int>(text.size()),
           text.data());
}

void ContainerStoreLog::SetWriter(Writer writer) {
  g_writer.store(writer);
}

}  // namespace quiv::platform
