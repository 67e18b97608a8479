// VectorTest: the value-parameterised fixture of the recorded-vector tests. One test instance is
// one (vector id, provider) pair of windows-csp.json, named "<id>__<provider>" with dots turned
// into underscores, so ctest lists and runs each one on its own.
//
// For each instance the fixture
//  - skips, with the reason, providers this library does not implement (SChannel);
//  - gives the test a fresh empty key-container store (TempKeyStore);
//  - opens the vector for that provider (VectorCase) and, after the procedure, fails the test on
//    every input or expected value the procedure did not read.
// Procedures are plain functions looked up by vector id in a table each test file supplies.
//
// Ownership: the fixture owns the store and the case for the duration of one test.
#ifndef QUIV_TESTS_SUPPORT_VECTORTEST_H
#define QUIV_TESTS_SUPPORT_VECTORTEST_H

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/TempKeyStore.h"
#include "support/VectorCase.h"
#include "support/VectorFile.h"
#include "support/VectorProvider.h"

namespace quiv::test {

using VectorProcedure = void (*)(VectorCase& vector, const VectorProvider& provider);

struct NamedProcedure {
  std::string_view id;
  VectorProcedure run;
};

class VectorTest : public ::testing::TestWithParam<VectorParam> {
 protected:
  void SetUp() override;
  void TearDown() override;

  VectorCase& Vector() { return *m_case; }
  const VectorProvider& Provider() const { return *m_provider; }
  // Runs the table entry whose id is this instance's vector id; fails when there is none.
  void RunProcedure(std::span<const NamedProcedure> table);

 private:
  std::optional<VectorProvider> m_provider;
  std::unique_ptr<TempKeyStore> m_store;
  std::unique_ptr<VectorCase> m_case;
};

std::string VectorTestName(const ::testing::TestParamInfo<VectorParam>& info);

// How GoogleTest prints a parameter in failure messages.
void PrintTo(const VectorParam& param, std::ostream* os);

}  // namespace quiv::test

#endif
