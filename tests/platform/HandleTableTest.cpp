#include "platform/HandleTable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace quiv::platform {
namespace {

struct Payload {
  explicit Payload(int v) : value(v) {}
  int value;
};

using Table = HandleTable<Payload>;

uint32_t Add(Table& table, int value) {
  return table.Insert(std::make_unique<Payload>(value));
}

TEST(HandleTableTest, InsertedHandleFindsItsObject) {
  Table table(2);
  const uint32_t h = Add(table, 7);
  ASSERT_NE(h, 0u);
  const Table::Ref entry = table.Find(h);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->object->value, 7);
  EXPECT_EQ(table.size(), 1u);
}

TEST(HandleTableTest, ZeroIsNeverAHandle) {
  Table table(1);
  for (int i = 0; i < 100; ++i) EXPECT_NE(Add(table, i), 0u);
  EXPECT_EQ(table.Find(0), nullptr);
  EXPECT_EQ(table.Remove(0), nullptr);
}

TEST(HandleTableTest, HandlesAreDistinct) {
  Table table(3);
  std::set<uint32_t> seen;
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(seen.insert(Add(table, i)).second);
}

TEST(HandleTableTest, RemovedHandleIsStale) {
  Table table(2);
  const uint32_t h = Add(table, 1);
  const Table::Ref removed = table.Remove(h);
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->object->value, 1);
  EXPECT_EQ(table.Find(h), nullptr);
  EXPECT_EQ(table.Remove(h), nullptr);  // a second release fails
  EXPECT_EQ(table.size(), 0u);
}

TEST(HandleTableTest, ReusedSlotGetsANewHandleAndTheOldOneStaysStale) {
  Table table(2);
  const uint32_t old = Add(table, 1);
  table.Remove(old);
  const uint32_t reused = Add(table, 2);
  EXPECT_NE(reused, old);
  EXPECT_EQ(table.Find(old), nullptr);
  ASSERT_NE(table.Find(reused), nullptr);
  EXPECT_EQ(table.Find(reused)->object->value, 2);
}

TEST(HandleTableTest, StaleHandleStaysStaleOverManyReuses) {
  Table table(2);
  const uint32_t old = Add(table, 0);
  table.Remove(old);
  // Keep a few slots free so reuse rotates among them (oldest first), as in real use.
  std::vector<uint32_t> live;
  for (int i = 0; i < 3000; ++i) {
    live.push_back(Add(table, i));
    if (live.size() > 4) {
      table.Remove(live.front());
      live.erase(live.begin());
    }
    ASSERT_EQ(table.Find(old), nullptr) << "after " << i << " allocations";
  }
}

TEST(HandleTableTest, HandleOfAnotherTableIsNotFound) {
  Table keys(2);
  Table hashes(3);
  const uint32_t key = Add(keys, 1);
  const uint32_t hash = Add(hashes, 2);
  // Same slot index and generation in both tables: only the tag tells them apart.
  EXPECT_EQ(key & 0x3fffffffu, hash & 0x3fffffffu);
  EXPECT_EQ(hashes.Find(key), nullptr);
  EXPECT_EQ(keys.Find(hash), nullptr);
  EXPECT_EQ(hashes.Remove(key), nullptr);
  EXPECT_NE(keys.Find(key), nullptr);
}

TEST(HandleTableTest, GarbageHandlesAreNotFound) {
  Table table(1);
  const uint32_t h = Add(table, 1);
  for (const uint32_t garbage : {0xffffffffu, 0xdeadbeefu, 0x12345678u, h + 1, h ^ 0x00100000u,
                                 h | 0x000fffffu, 1u, 0x40000000u}) {
    if (garbage == h) continue;
    EXPECT_EQ(table.Find(garbage), nullptr) << std::hex << garbage;
  }
}

TEST(HandleTableTest, RemoveIfFreesMatchingHandlesOnly) {
  Table table(2);
  std::vector<uint32_t> handles;
  for (int i = 0; i < 10; ++i) handles.push_back(Add(table, i));
  const std::vector<Table::Ref> removed =
      table.RemoveIf([](const Payload& p) { return p.value % 2 == 0; });
  EXPECT_EQ(removed.size(), 5u);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(table.Find(handles[i]) == nullptr, i % 2 == 0) << i;
  }
  EXPECT_EQ(table.size(), 5u);
}

TEST(HandleTableTest, EntryOutlivesRemovalWhileReferenced) {
  Table table(2);
  const uint32_t h = Add(table, 42);
  const Table::Ref held = table.Find(h);
  table.Remove(h);
  EXPECT_EQ(held->object->value, 42);  // still valid memory (ASan checks)
}

TEST(HandleTableTest, ConcurrentInsertFindRemoveOnDifferentHandles) {
  Table table(2);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 2000; ++i) {
        const int value = t * 100000 + i;
        const uint32_t h = Add(table, value);
        const Table::Ref found = table.Find(h);
        if (found == nullptr || found->object->value != value) ++failures;
        if (table.Remove(h) == nullptr) ++failures;
        if (table.Find(h) != nullptr) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(table.size(), 0u);
}

}  // namespace
}  // namespace quiv::platform
