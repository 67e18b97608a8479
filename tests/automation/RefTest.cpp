#include "automation/Ref.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "automation/Object.h"
#include "automation/RuntimeError.h"

namespace quiv {
namespace {

using ::testing::Property;
using ::testing::Throws;

// Counts destructions so a test can tell when an object really went away.
class Counted : public Object {
 public:
  explicit Counted(int& destroyed) : m_destroyed(destroyed) {}
  ~Counted() override { ++m_destroyed; }
  String TypeName() const override { return u"Counted"; }

  Ref<Counted> m_peer;  // a strong reference, as a provider and its children hold each other

 private:
  int& m_destroyed;
};

class Other : public Object {};

TEST(Ref, DefaultAndNothingAreEmpty) {
  const Ref<Counted> none;
  const Ref<Counted> nothing = Nothing;
  EXPECT_TRUE(none.IsNothing());
  EXPECT_TRUE(nothing.IsNothing());
  EXPECT_FALSE(static_cast<bool>(nothing));
  EXPECT_TRUE(nothing == Nothing);
  EXPECT_EQ(none.UseCount(), 0);
}

TEST(Ref, UsingNothingRaisesObjectNotSet) {
  const Ref<Counted> nothing;
  EXPECT_THAT([&] { (void)nothing->TypeName(); },
              Throws<RuntimeError>(Property(&RuntimeError::Number, 91)));
}

TEST(Ref, CountsReferencesAndDestroysWithTheLast) {
  int destroyed = 0;
  Ref<Counted> first = MakeRef<Counted>(destroyed);
  {
    const Ref<Counted> second = first;
    EXPECT_EQ(first.UseCount(), 2);
    EXPECT_TRUE(first == second);
  }
  EXPECT_EQ(first.UseCount(), 1);
  EXPECT_EQ(destroyed, 0);
  first = Nothing;
  EXPECT_EQ(destroyed, 1);
}

TEST(Ref, UpcastAndDowncast) {
  int destroyed = 0;
  const Ref<Object> base = MakeRef<Counted>(destroyed);
  EXPECT_EQ(base->TypeName(), String(u"Counted"));
  const Ref<Counted> back = base.As<Counted>();
  EXPECT_FALSE(back.IsNothing());
  EXPECT_TRUE(back == base);
  EXPECT_TRUE(base.As<Other>().IsNothing());
  EXPECT_TRUE(Ref<Object>().As<Counted>().IsNothing());
}

TEST(Ref, RefToSharesTheOwningCount) {
  int destroyed = 0;
  const Ref<Counted> owner = MakeRef<Counted>(destroyed);
  const Ref<Counted> self = RefTo(owner.get());
  EXPECT_TRUE(self == owner);
  EXPECT_EQ(owner.UseCount(), 2);
}

TEST(Ref, CycleLeaksUntilBroken) {
  int destroyed = 0;
  Counted* survivor = nullptr;
  {
    const Ref<Counted> parent = MakeRef<Counted>(destroyed);
    const Ref<Counted> child = MakeRef<Counted>(destroyed);
    parent->m_peer = child;
    child->m_peer = parent;
    survivor = parent.get();
  }
  // Both outside references are gone, yet each keeps the other alive.
  EXPECT_EQ(destroyed, 0);
  // Breaking one link frees the child, whose release of the parent frees the parent too.
  survivor->m_peer.SetNothing();
  EXPECT_EQ(destroyed, 2);
}

}  // namespace
}  // namespace quiv
