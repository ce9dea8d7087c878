#include "pellor/linux/contacts/internal/ContactLinks.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>

namespace pellor {

namespace {

using Pair = std::pair<std::int32_t, std::int32_t>;

Pair ordered(std::int32_t one, std::int32_t other) { return {std::min(one, other), std::max(one, other)}; }

/// Of two sets the smaller one goes into the larger one, with those that refuse it: so nobody changes often.
class Sets {
 public:
  void refuse(std::int32_t one, std::int32_t other) {
    if (one == other) return;
    Set& first = setOf(one);
    Set& second = setOf(other);
    first.refused.insert(&second);
    second.refused.insert(&first);
  }

  void link(std::int32_t one, std::int32_t other) {
    Set* large = &setOf(one);
    Set* small = &setOf(other);
    if (large == small || large->refused.contains(small)) return;
    if (large->size() < small->size()) std::swap(large, small);
    for (const std::int32_t member : small->members) _sets[member] = large;
    large->members.insert(large->members.end(), small->members.begin(), small->members.end());
    large->lowest = std::min(large->lowest, small->lowest);
    for (Set* refused : small->refused) {
      refused->refused.erase(small);
      refused->refused.insert(large);
    }
    large->refused.merge(small->refused);
    *small = {};
  }

  std::map<std::int32_t, std::int32_t> result() const {
    std::map<std::int32_t, std::int32_t> lowest;
    for (const auto& [record, set] : _sets) {
      if (set->members.size() > 1) lowest.emplace_hint(lowest.end(), record, set->lowest);
    }
    return lowest;
  }

 private:
  struct Set {
    std::int32_t lowest = 0;
    std::vector<std::int32_t> members;
    std::set<Set*> refused;  ///< sets with a record that one of this set refuses, or the other way round
    std::size_t size() const { return members.size() + refused.size(); }
  };

  Set& setOf(std::int32_t record) {
    const auto [entry, isNew] = _sets.emplace(record, nullptr);
    if (isNew) entry->second = &_storage.emplace_back(Set{record, {record}, {}});
    return *entry->second;
  }

  std::map<std::int32_t, Set*> _sets;
  std::deque<Set> _storage;
};

}  // namespace

std::map<std::int32_t, std::int32_t> linkedSets(const std::vector<LinkStatement>& statements) {
  std::set<Pair> links;
  Sets sets;
  for (const LinkStatement& statement : statements) {
    for (const std::int32_t other : statement.links) links.insert(ordered(statement.recordID, other));
    for (const std::int32_t other : statement.antiLinks) sets.refuse(statement.recordID, other);
  }
  for (const auto& [one, other] : links) sets.link(one, other);
  return sets.result();
}

namespace {

// All members of those sets of `sets` that have a changed member, or one that `others` has elsewhere.
void addAffected(std::set<std::int32_t>& affected, const std::set<std::int32_t>& changed,
                 const std::map<std::int32_t, std::int32_t>& sets, const std::map<std::int32_t, std::int32_t>& others) {
  std::set<std::int32_t> affectedSets;
  for (const auto& [record, set] : sets) {
    const auto other = others.find(record);
    if (other == others.end() || other->second != set || changed.contains(record)) affectedSets.insert(set);
  }
  for (const auto& [record, set] : sets) {
    if (affectedSets.contains(set)) affected.insert(record);
  }
}

}  // namespace

std::set<std::int32_t> affectedRecords(const std::set<std::int32_t>& changed,
                                       const std::map<std::int32_t, std::int32_t>& formerSets,
                                       const std::map<std::int32_t, std::int32_t>& sets) {
  std::set<std::int32_t> affected = changed;
  addAffected(affected, changed, formerSets, sets);
  addAffected(affected, changed, sets, formerSets);
  return affected;
}

}  // namespace pellor
