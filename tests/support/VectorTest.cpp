#include "support/VectorTest.h"

#include <algorithm>

namespace quiv::test {

void VectorTest::SetUp() {
  m_provider.emplace(GetParam().provider);
  if (!m_provider->IsBuilt()) GTEST_SKIP() << m_provider->NotBuiltReason();
  m_store = std::make_unique<TempKeyStore>();
  m_case = std::make_unique<VectorCase>(*GetParam().file, GetParam().id, GetParam().provider);
}

void VectorTest::TearDown() {
  // After a fatal failure (or an exception) the procedure stopped early; its unread fields say
  // nothing new.
  if (m_case && !IsSkipped() && !HasFatalFailure()) {
    for (const auto& path : m_case->Unread()) {
      ADD_FAILURE() << "vector " << m_case->id() << " (" << m_case->provider()
                    << "): recorded value " << path << " was never read by the procedure";
    }
  }
  m_case.reset();
  m_store.reset();
}

void VectorTest::RunProcedure(std::span<const NamedProcedure> table) {
  const auto it = std::find_if(table.begin(), table.end(),
                               [&](const NamedProcedure& p) { return p.id == GetParam().id; });
  ASSERT_NE(it, table.end()) << "no procedure for vector " << GetParam().id;
  it->run(*m_case, *m_provider);
}

void PrintTo(const VectorParam& param, std::ostream* os) {
  *os << param.id << " on " << param.provider;
}

std::string VectorTestName(const ::testing::TestParamInfo<VectorParam>& info) {
  std::string name = info.param.id + "__" + info.param.provider;
  std::replace_if(
      name.begin(), name.end(),
      [](char c) {
        return !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                 c == '_');
      },
      '_');
  return name;
}

}  // namespace quiv::test
