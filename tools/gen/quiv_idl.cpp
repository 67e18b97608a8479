// quiv_idl: writes the IDL text of the type library, generated from the dispatch tables, to the
// file named by its one argument (the build runs it; the file is installed with the headers).
#include <cstdio>
#include <fstream>
#include <string>

#include "server/IdlWriter.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: quiv_idl OUTPUT.idl\n");
    return 2;
  }
  const std::string text = quiv::server::WriteIdl();
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) {
    std::fprintf(stderr, "quiv_idl: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
