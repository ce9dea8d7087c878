// What changed in a friend list: which persons, and how.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace pellor {

class PLPerson;

/// The kinds of change that a log records.
inline constexpr std::string_view PLFriendsManagerPersonAdded = "PLFriendsManagerPersonAdded";
inline constexpr std::string_view PLFriendsManagerPersonUpdated = "PLFriendsManagerPersonUpdated";
inline constexpr std::string_view PLFriendsManagerPersonDeleted = "PLFriendsManagerPersonDeleted";
inline constexpr std::string_view PLFriendsManagerPersonMoved = "PLFriendsManagerPersonMoved";

/// A dictionary from persons, by identity, to sets of change types that are never empty, in the order in which the
/// persons, never null, were entered. A value: copies share nothing but the persons. Not shared between threads.
class PLChangeLog {
 public:
  using ChangeTypes = std::set<std::string, std::less<>>;
  using Entry = std::pair<std::shared_ptr<PLPerson>, ChangeTypes>;

  /// Adds one type to the person's set.
  void add(const std::shared_ptr<PLPerson>& person, std::string_view changeType);
  /// Puts `types` in place of the person's set.
  void set(const std::shared_ptr<PLPerson>& person, ChangeTypes types);

  /// The person's set; null when the person is not in the log. Lives until the next change of the log.
  const ChangeTypes* typesFor(const PLPerson* person) const;
  /// The live entries, until the next change of the log.
  const std::vector<Entry>& entries() const { return _entries; }
  std::uint64_t count() const { return _entries.size(); }
  bool isEmpty() const { return _entries.empty(); }
  /// Whether any person was added or updated.
  bool containsAdditionsOrUpdates() const;

 private:
  Entry& entryFor(const std::shared_ptr<PLPerson>& person);

  std::vector<Entry> _entries;
  std::unordered_map<const PLPerson*, std::size_t> _places;
};

/// The logs merged in their order. A later deletion wipes what came before it; an addition after a deletion counts as
/// what the later log says; in every other case the sets are united. Any thread.
PLChangeLog mergedChangeLogs(const std::vector<PLChangeLog>& logs);

}  // namespace pellor
