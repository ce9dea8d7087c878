// Follows the pages of a manager.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "pellor/list/Snapshot.h"
#include "pellor/list/internal/SnapshotEdit.h"

namespace pellor {

class ListDraft;
class PLFriendGroup;
class PLFriendsManager;
class PLPerson;

/// The ids of persons, and what stays with an id. Main queue.
class FriendIds {
 public:
  /// The id of a person; in several slots the person has an id for each, of which `occurrence` counts from 0. A new one
  /// where there is none yet.
  FriendId idOf(const std::shared_ptr<PLPerson>& person, std::size_t occurrence);
  /// The person of an id; null for one that the process has no more.
  std::shared_ptr<PLPerson> personWith(FriendId id) const;
  /// An id for somebody who is to come.
  FriendId newId() { return {++_lastNumber}; }
  /// The id is this person's from now on, who has none.
  void give(FriendId id, const std::shared_ptr<PLPerson>& person);
  /// The first id of a person; absent for one that has none.
  std::optional<FriendId> knownId(const PLPerson& person) const;

 private:
  struct Known {
    std::weak_ptr<PLPerson> person;
    std::vector<FriendId> ids;
  };
  void forgetTheGone();

  std::unordered_map<const PLPerson*, Known> _known;
  std::unordered_map<std::uint64_t, const PLPerson*> _persons;
  std::uint64_t _lastNumber = 0;
  std::size_t _tidyAt = 1024;
};

/// Makes versions of a list, each of what the manager has at that moment. Its invariant: the last version is what the
/// pages showed when it was made, but for persons who were told of since. Main queue.
class ListMirror {
 public:
  explicit ListMirror(std::shared_ptr<PLFriendsManager> manager);
  ~ListMirror();

  /// The person is to be looked at again.
  void noteChange(const std::shared_ptr<PLPerson>& person);
  /// Contacts changed: the friends who are linked with them are to be looked at again.
  void noteChangeOfContacts();
  /// All friends' statuses are.
  void noteChangeOfStatuses() { _statusesAreStale = true; }
  /// The titles are.
  void noteChangeOfTitles() { _titlesAreStale = true; }

  const Snapshot& last() const { return _last; }
  /// The version of now: where anything changed it costs as much as that, and a look at each page. Pages are known by
  /// who stands on them, or are those of `step`, null for none: all that happened since the last version is that step.
  const Snapshot& update(const ListDraft* step = nullptr);

  /// A person as a friend with that id, as it is now.
  Friend shown(const std::shared_ptr<PLPerson>& person, FriendId id) const;

  FriendIds& ids() { return _ids; }
  const FriendIds& ids() const { return _ids; }
  /// Names a page that is to come.
  PageId newPageId() { return {++_lastPageNumber}; }

 private:
  using Persons = std::vector<std::shared_ptr<PLPerson>>;
  struct MirrorPage {
    PageId id;
    std::shared_ptr<PLFriendGroup> group;
    Persons persons;
    std::string title;
  };
  /// Pages that lie between two that both versions begin and end with.
  struct Window {
    std::size_t begin = 0;
    std::size_t oldEnd = 0;
    std::size_t newEnd = 0;
  };

  Window changedWindow(const ListDraft* step) const;
  void count(const Persons& persons, int sign);
  std::vector<MirrorPage> pagesOf(const Window& window, const ListDraft* step);
  void takeOver(const Window& window, std::vector<MirrorPage> pages);
  Persons personsToShow(const Window& window) const;
  void replace(const Window& window, SnapshotEdit& edit);
  void renewOthers(const Window& window, SnapshotEdit& edit);
  PageRef shownPage(const MirrorPage& page);
  FriendRef shownFriend(const std::shared_ptr<PLPerson>& person);
  bool isShownAsBefore(const Friend& former, const std::shared_ptr<PLPerson>& person) const;

  const std::shared_ptr<PLFriendsManager> _manager;
  FriendIds _ids;
  std::vector<MirrorPage> _pages;
  Snapshot _last;
  std::unordered_set<std::shared_ptr<PLPerson>> _stale;
  bool _allAreStale = false;
  bool _statusesAreStale = false;
  bool _titlesAreStale = false;
  std::int32_t _contactsSequence = 0;  ///< that the friends were looked at with
  std::uint64_t _lastPageNumber = 0;
  std::optional<std::uint64_t> _layoutVersion;                 ///< of the manager when the last version was made
  std::unordered_map<std::shared_ptr<PLPerson>, int> _counts;  ///< in how many slots each person is
  std::size_t _surplus = 0;  ///< how many slots hold somebody who is in a lower one too
  bool _hadSurplus = false;  ///< when the last version was made
  std::unordered_map<const PLPerson*, std::size_t> _occurrences;  ///< met since the update began
};

}  // namespace pellor
