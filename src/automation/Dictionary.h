// Dictionary: an insertion-ordered map of Variant keys to Variant values, as the run time's
// dictionary object with binary comparison: keys match when they are of the same kind and
// value (Integer, Long and Double keys match by numeric value; strings by their exact code
// units; objects by identity). Keys() and Items() list entries in the order they were added.
//
// The dictionary owns copies of its keys and values; object values are held by counted Refs.
// It is an automation Object so that it can be shared and stored in a Variant.
#ifndef QUIV_AUTOMATION_DICTIONARY_H
#define QUIV_AUTOMATION_DICTIONARY_H

#include <cstddef>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

#include "automation/Object.h"
#include "automation/Variant.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API Dictionary final : public Object {
 public:
  Dictionary() = default;

  // Adds the pair at the end. A key already present raises run-time error 457 ("This key is
  // already associated with an element of this collection").
  void Add(const Variant& key, const Variant& item);
  // The item for `key`. As the run time's dictionary does, reading a missing key adds it with
  // an Empty item (and returns Empty).
  Variant Item(const Variant& key);
  // Replaces the item for `key`, or adds the pair at the end when the key is missing.
  void SetItem(const Variant& key, const Variant& item);
  // The item for `key`, or nullptr when missing (never adds).
  const Variant* Find(const Variant& key) const;
  size_t Count() const { return m_entries.size(); }
  bool Exists(const Variant& key) const { return Find(key) != nullptr; }
  // Removes the pair; a missing key raises run-time error 32811 ("Element not found").
  void Remove(const Variant& key);
  void RemoveAll();
  std::vector<Variant> Keys() const;
  std::vector<Variant> Items() const;

  String TypeName() const override { return u"Dictionary"; }

 private:
  using Entry = std::pair<Variant, Variant>;
  using Entries = std::list<Entry>;

  // The entry for `key` in `self` (const or not), or its end().
  template <class Self>
  static auto Locate(Self& self, const Variant& key) -> decltype(self.m_entries.begin());
  void Append(const Variant& key, const Variant& item);

  Entries m_entries;
  // Hash of the key -> its entry, so lookups stay O(1) however many entries there are.
  std::unordered_multimap<size_t, Entries::iterator> m_index;
};

}  // namespace quiv

#endif
