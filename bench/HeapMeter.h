// HeapMeter: counts the bytes a program holds through operator new, and the most it held since a
// mark. Linking HeapMeter.cpp replaces the global operator new and delete of the whole program
// (the library's containers all allocate through them), so only a benchmark program that wants
// the counts links it.
#ifndef QUIV_BENCH_HEAPMETER_H
#define QUIV_BENCH_HEAPMETER_H

#include <cstddef>

namespace quiv::bench {

class HeapMeter {
 public:
  // Bytes held now.
  static size_t Current();
  // Starts a measurement: the peak is reset to what is held now, which is returned.
  static size_t Mark();
  // The most held at any moment since the last Mark().
  static size_t Peak();
};

// One measured piece of work: the most it held at once beyond what was held before it began, and
// what it still holds when it is done (results and anything kept for later).
struct HeapUse {
  size_t peak = 0;
  size_t kept = 0;
};

template <class F>
HeapUse MeasureHeap(F&& work) {
  const size_t before = HeapMeter::Mark();
  work();
  const size_t after = HeapMeter::Current();
  return {HeapMeter::Peak() - before, after > before ? after - before : 0};
}

}  // namespace quiv::bench

#endif
