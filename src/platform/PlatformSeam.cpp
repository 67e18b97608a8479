#include "platform/PlatformSeam.h"

#include <atomic>

#include "platform/RealPlatform.h"

namespace quiv::platform {

namespace {

std::atomic<IPlatform*> g_override{nullptr};

}  // namespace

IPlatform& DefaultPlatform() {
  // Never destroyed, so that objects still in use while exit() runs (from an atexit handler or
  // another thread) keep a platform to call, as the provider's handle tables do (CryptApi.cpp).
  static RealPlatform* const instance = new RealPlatform();
  return *instance;
}

IPlatform& Platform() {
  IPlatform* const installed = g_override.load(std::memory_order_acquire);
  return installed != nullptr ? *installed : DefaultPlatform();
}

ScopedPlatformOverride::ScopedPlatformOverride(IPlatform& platform)
    : m_previous(g_override.exchange(&platform, std::memory_order_acq_rel)) {}

ScopedPlatformOverride::~ScopedPlatformOverride() {
  g_override.store(m_previous, std::memory_order_release);
}

}  // namespace quiv::platform
