// HandleTable: the table behind one kind of CryptoAPI handle (contexts, keys or hashes). A handle
// is a 32-bit value, never 0, that encodes
//   bits 31..30  the table's kind tag (so a key handle is never found in the hash table),
//   bits 29..20  the slot's generation, bumped each time the slot is freed,
//   bits 19..0   the slot index,
// so a handle that was released, destroyed, belongs to another table, or is plain garbage is
// not found, instead of reaching freed memory. Freed slots are reused oldest first, which
// spreads reuse over all slots and makes a stale handle's generation wrap (1024 reuses of the
// very same slot) as late as possible.
//
// Ownership and threads: the table owns its entries through shared pointers; Find hands out a
// shared reference, so an entry removed by one thread stays alive until another thread that is
// still using it lets go. The table is protected by its own mutex; each entry carries a
// recursive mutex the C entry points hold while they work on the object, so calls on the same
// handle from several threads are serialised and calls on different handles run in parallel.
#ifndef QUIV_PLATFORM_HANDLETABLE_H
#define QUIV_PLATFORM_HANDLETABLE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/CspError.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

template <class T>
class HandleTable final {
 public:
  static constexpr uint32_t kIndexBits = 20;
  static constexpr uint32_t kGenerationBits = 10;
  static constexpr uint32_t kMaxSlots = (1u << kIndexBits) - 1;

  // One object behind a handle, with the lock that serialises calls on it.
  struct Entry {
    explicit Entry(std::unique_ptr<T> o) : object(std::move(o)) {}
    std::recursive_mutex mutex;
    const std::unique_ptr<T> object;
  };
  using Ref = std::shared_ptr<Entry>;

  // `tag` (1..3) is the kind written into the top two bits of every handle of this table.
  explicit HandleTable(uint32_t tag) : m_tag(tag & 3u) {}
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  // Stores `object` and returns its new handle. throws NTE_NO_MEMORY when every slot is in use.
  uint32_t Insert(std::unique_ptr<T> object) {
    auto entry = std::make_shared<Entry>(std::move(object));
    const std::lock_guard lock(m_mutex);
    uint32_t index = 0;
    if (!m_free.empty()) {
      index = m_free.front();
      m_free.pop_front();
    } else if (m_slots.size() < kMaxSlots) {
      index = static_cast<uint32_t>(m_slots.size());
      m_slots.emplace_back();
    } else {
      throw CspError(NTE_NO_MEMORY);
    }
    Slot& slot = m_slots[index];
    slot.entry = std::move(entry);
    return Encode(index, slot.generation);
  }

  // The entry behind `handle`, or null when the handle is not a live handle of this table.
  Ref Find(uint32_t handle) const {
    const std::lock_guard lock(m_mutex);
    const Slot* slot = Locate(handle);
    return slot != nullptr ? slot->entry : nullptr;
  }

  // Frees the handle and returns its entry (null when the handle was not live).
  Ref Remove(uint32_t handle) {
    const std::lock_guard lock(m_mutex);
    Slot* slot = const_cast<Slot*>(Locate(handle));
    if (slot == nullptr) return nullptr;
    return Free(static_cast<uint32_t>(slot - m_slots.data()));
  }

  // Frees every handle whose object satisfies `pred` and returns their entries, so the caller
  // can drop them outside the table's lock.
  template <class Pred>
  std::vector<Ref> RemoveIf(Pred pred) {
    std::vector<Ref> removed;
    const std::lock_guard lock(m_mutex);
    for (uint32_t i = 0; i < m_slots.size(); ++i) {
      if (m_slots[i].entry && pred(*m_slots[i].entry->object)) removed.push_back(Free(i));
    }
    return removed;
  }

  // Number of live handles.
  size_t size() const {
    const std::lock_guard lock(m_mutex);
    return m_slots.size() - m_free.size();
  }

 private:
  struct Slot {
    Ref entry;
    uint32_t generation = 0;
  };

  static constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
  static constexpr uint32_t kGenerationMask = (1u << kGenerationBits) - 1;

  uint32_t Encode(uint32_t index, uint32_t generation) const {
    return (m_tag << (kIndexBits + kGenerationBits)) | (generation << kIndexBits) | index;
  }

  const Slot* Locate(uint32_t handle) const {
    if (handle >> (kIndexBits + kGenerationBits) != m_tag) return nullptr;
    const uint32_t index = handle & kIndexMask;
    if (index >= m_slots.size()) return nullptr;
    const Slot& slot = m_slots[index];
    if (!slot.entry || Encode(index, slot.generation) != handle) return nullptr;
    return &slot;
  }

  Ref Free(uint32_t index) {
    Slot& slot = m_slots[index];
    Ref entry = std::move(slot.entry);
    slot.entry.reset();
    slot.generation = (slot.generation + 1) & kGenerationMask;
    m_free.push_back(index);
    return entry;
  }

  const uint32_t m_tag;
  mutable std::mutex m_mutex;
  std::vector<Slot> m_slots;
  std::deque<uint32_t> m_free;
};

}  // namespace quiv::platform

#endif
