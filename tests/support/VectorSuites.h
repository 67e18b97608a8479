// VectorSuites: which test program runs which categories of windows-csp.json. Every category of
// the file belongs to exactly one suite (VectorsCoverageTest checks it), so a vector cannot fall
// between the programs.
#ifndef QUIV_TESTS_SUPPORT_VECTORSUITES_H
#define QUIV_TESTS_SUPPORT_VECTORSUITES_H

#include <array>
#include <span>
#include <string_view>

namespace quiv::test {

inline constexpr std::array<std::string_view, 3> kHashCategories = {"hash", "hmac", "mac"};
inline constexpr std::array<std::string_view, 6> kSymmetricCategories = {
    "key_params", "block_mode", "derived_key", "padding", "salt", "rc2_import"};
inline constexpr std::array<std::string_view, 1> kKdfCategories = {"key_derivation_table"};
inline constexpr std::array<std::string_view, 4> kRsaCategories = {"private_key_blob", "simpleblob",
                                                                   "public_key_blob", "signature"};
inline constexpr std::array<std::string_view, 3> kContextCategories = {"prov_params", "context",
                                                                       "size_query"};

inline constexpr std::array<std::span<const std::string_view>, 5> kAllSuites = {
    kHashCategories, kSymmetricCategories, kKdfCategories, kRsaCategories, kContextCategories};

}  // namespace quiv::test

#endif
