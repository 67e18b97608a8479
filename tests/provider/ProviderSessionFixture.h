// ProviderSessionFixture: the session most provider tests start from. The real provider with its
// key stores in a temporary folder and the application log kept quiet, a CProvider whose type is
// PROV_RSA_FULL (the type starts at 0, which no acquisition accepts), terminated at the end. A
// test file derives its one fixture from it and loads the provider as it needs.
#ifndef QUIV_TESTS_PROVIDER_PROVIDERSESSIONFIXTURE_H
#define QUIV_TESTS_PROVIDER_PROVIDERSESSIONFIXTURE_H

#include "ProviderFakes.h"

#include <gtest/gtest.h>

#include "automation/Ref.h"
#include "constants/CConstQUIV.h"
#include "provider/CProvider.h"
#include "support/TempKeyStore.h"

namespace quiv::test {

class ProviderSessionFixture : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(provider->SetProviderTypeID(CConstQUIV().PROV_RSA_FULL())); }
  void TearDown() override { provider->TerminateAll(); }

  QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
};

}  // namespace quiv::test

#endif
