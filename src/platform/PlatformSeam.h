// PlatformSeam: where the library finds its platform. Platform() returns the IPlatform every
// class above src/platform calls (the real provider unless a test installed another one);
// ScopedPlatformOverride installs one for the lifetime of a scope:
//
//   RealPlatform real;             // or quiv::platform::Platform() before the override
//   FailingRandom fake(real);      // a ForwardingPlatform that overrides one call
//   ScopedPlatformOverride use(fake);
//   ... the code under test now reaches `fake` ...
//
// Ownership: the default platform is a process-wide object made on first use. An override is owned
// by the caller and must outlive the scope object. Installing and reading are atomic; overrides
// nest (each scope restores what it replaced), and must be ended in reverse order of creation.
#ifndef QUIV_PLATFORM_PLATFORMSEAM_H
#define QUIV_PLATFORM_PLATFORMSEAM_H

#include "platform/IPlatform.h"
#include "platform/QuivExport.h"

namespace quiv::platform {

// The platform the library calls.
QUIV_API IPlatform& Platform();

// The real provider, whatever is installed (what a forwarding fake usually wraps).
QUIV_API IPlatform& DefaultPlatform();

class QUIV_API ScopedPlatformOverride final {
 public:
  explicit ScopedPlatformOverride(IPlatform& platform);
  ~ScopedPlatformOverride();
  ScopedPlatformOverride(const ScopedPlatformOverride&) = delete;
  ScopedPlatformOverride& operator=(const ScopedPlatformOverride&) = delete;

 private:
  IPlatform* m_previous;
};

}  // namespace quiv::platform

#endif
