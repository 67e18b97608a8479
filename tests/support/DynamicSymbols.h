// The defined dynamic symbols of a shared library (`nm -D --defined-only`), for the tests that
// check what libquiv exports: name (without version suffix) -> nm type letter ('T' function,
// 'R' read-only data, ...). Empty when nm cannot read the library.
#ifndef QUIV_TESTS_SUPPORT_DYNAMICSYMBOLS_H
#define QUIV_TESTS_SUPPORT_DYNAMICSYMBOLS_H

#include <filesystem>
#include <map>
#include <string>

namespace quiv::test {

std::map<std::string, char> DynamicSymbols(const std::filesystem::path& library);

}  // namespace quiv::test

#endif
