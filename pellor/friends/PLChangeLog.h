// What changed in a friend list: which persons, and how.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace pellor {

class PLPerson;

/// The kinds of change that a log records.
inline constexpr std::string_view PLFriendsManagerPersonAdded = "PLFriendsManagerPersonAdded";
inline constexpr std::string_view PLFriendsManagerPersonUpdated = "PLFriendsManagerPersonUpdated";
inline constexpr std::string_view PLFriendsManagerPersonDeleted = "PLFriendsManagerPersonDeleted";
inline constexpr std::string_view PLFriendsManagerPersonMoved = "PLFriendsManagerPersonMoved";

/// A set of those kinds, in the order of their names.
class PLChangeTypes {
 public:
  /// Puts in one of the four kinds; any other text is ignored.
  void insert(std::string_view changeType);
  void insert(const PLChangeTypes& others) { _kinds |= others._kinds; }
  bool contains(std::string_view changeType) const;
  bool isEmpty() const { return _kinds == 0; }

  const std::string_view* begin() const;
  const std::string_view* end() const;

  friend bool operator==(const PLChangeTypes&, const PLChangeTypes&) = default;

 private:
  std::uint8_t _kinds = 0;  // a bit for each, in the order of the names
};

/// A dictionary from persons, by identity, to sets of change types that are never empty, in the order in which the
/// persons, never null, were entered. A value: a copy shows nothing of later changes. It costs next to nothing, and the
/// first change of either after it as much as the log is long. Not shared between threads.
class PLChangeLog {
 public:
  using Entry = std::pair<std::shared_ptr<PLPerson>, PLChangeTypes>;

  PLChangeLog();
  PLChangeLog(const PLChangeLog& other);
  PLChangeLog& operator=(const PLChangeLog& other);
  PLChangeLog(PLChangeLog&& other) noexcept;
  PLChangeLog& operator=(PLChangeLog&& other) noexcept;
  ~PLChangeLog();

  /// Adds one type to the person's set.
  void add(const std::shared_ptr<PLPerson>& person, std::string_view changeType);
  /// Adds one type to the set of a person that is not in the log, or has its last entry: costs no search.
  void addLast(const std::shared_ptr<PLPerson>& person, std::string_view changeType);
  /// Adds all entries of a later log, in their order.
  void add(PLChangeLog later);
  /// Puts `types` in place of the person's set.
  void set(const std::shared_ptr<PLPerson>& person, PLChangeTypes types);

  /// The person's set; null when the person is not in the log. Lives until the next change of the log.
  const PLChangeTypes* typesFor(const PLPerson* person) const;
  /// The live entries, until the next change of the log.
  const std::vector<Entry>& entries() const;
  std::uint64_t count() const { return entries().size(); }
  bool isEmpty() const { return entries().empty(); }
  /// Whether any person was added or updated.
  bool containsAdditionsOrUpdates() const;

 private:
  struct Content;
  Content& ownContent();
  PLChangeTypes& typesOf(const std::shared_ptr<PLPerson>& person);

  std::shared_ptr<Content> _content;  // null: empty
};

/// The logs merged in their order. A later deletion wipes what came before it; an addition after a deletion counts as
/// what the later log says; in every other case the sets are united. Any thread.
PLChangeLog mergedChangeLogs(const std::vector<PLChangeLog>& logs);

}  // namespace pellor
