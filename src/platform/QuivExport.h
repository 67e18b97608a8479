// Symbol visibility for libquiv. The library is built with hidden visibility; what callers may
// bind to (the C entry points and the public C++ classes) is marked QUIV_API.
#ifndef QUIV_PLATFORM_QUIVEXPORT_H
#define QUIV_PLATFORM_QUIVEXPORT_H

#define QUIV_API __attribute__((visibility("default")))

#endif
