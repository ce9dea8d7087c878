#include "linux/ContactLinks.h"

#include <algorithm>
#include <set>
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

}  // namespace pellor
