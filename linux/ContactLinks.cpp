#include "linux/ContactLinks.h"

#include <algorithm>
#include <utility>

namespace pellor {

namespace {

using Pair = std::pair<std::int32_t, std::int32_t>;

Pair ordered(std::int32_t one, std::int32_t other) { return {std::min(one, other), std::max(one, other)}; }

class Sets {
 public:
  explicit Sets(std::set<Pair> refused) : _refused(std::move(refused)) {}

  void link(std::int32_t one, std::int32_t other) {
    const std::int32_t low = std::min(setOf(one), setOf(other));
    const std::int32_t high = std::max(setOf(one), setOf(other));
    if (low == high || refuse(low, high)) return;
    for (const std::int32_t member : _members[high]) {
      _set[member] = low;
      _members[low].push_back(member);
    }
    _members.erase(high);
  }

  const std::map<std::int32_t, std::int32_t>& result() const { return _set; }

  void dropSingles() {
    std::erase_if(_set, [this](const auto& entry) { return _members[entry.second].size() < 2; });
  }

 private:
  std::int32_t setOf(std::int32_t record) {
    const auto [entry, isNew] = _set.emplace(record, record);
    if (isNew) _members[record] = {record};
    return entry->second;
  }

  bool refuse(std::int32_t low, std::int32_t high) const {
    return std::any_of(_refused.begin(), _refused.end(), [&](const Pair& pair) {
      const auto one = _set.find(pair.first);
      const auto other = _set.find(pair.second);
      if (one == _set.end() || other == _set.end()) return false;
      return ordered(one->second, other->second) == Pair(low, high);
    });
  }

  std::set<Pair> _refused;
  std::map<std::int32_t, std::int32_t> _set;
  std::map<std::int32_t, std::vector<std::int32_t>> _members;
};

}  // namespace

std::map<std::int32_t, std::int32_t> linkedSets(const std::vector<LinkStatement>& statements) {
  std::set<Pair> links;
  std::set<Pair> refused;
  for (const LinkStatement& statement : statements) {
    for (const std::int32_t other : statement.links) links.insert(ordered(statement.recordID, other));
    for (const std::int32_t other : statement.antiLinks) refused.insert(ordered(statement.recordID, other));
  }
  Sets sets(std::move(refused));
  for (const auto& [one, other] : links) sets.link(one, other);
  sets.dropSingles();
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
