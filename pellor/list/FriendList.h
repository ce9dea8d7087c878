// A friend list for an app: what it shows, as values, and what changes, as it changes.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/list/ListChange.h"
#include "pellor/list/ListIds.h"
#include "pellor/list/Snapshot.h"
#include "pellor/platform/ContactPhoto.h"
#include "pellor/platform/ContactSearch.h"

namespace pellor {

class Observation;
class PLFriendsManager;

/// What an app hears of its list. Both are called on the main queue, by a task of their own: never inside a call of the
/// app's, and never one inside the other. Either may be empty, and may call the list.
struct ListObserver {
  /// The list has been read; once, also for an observer that comes later.
  std::function<void(const Snapshot& list)> loaded = {};
  /// The list changed since the observer was told last. What happened between two tasks of the main queue is one batch.
  std::function<void(const ListChange& change)> changed = {};
};

/// Shows the list of one manager. Main queue.
class FriendList {
 public:
  /// The list of a manager. Until the store has answered it has no page.
  static std::unique_ptr<FriendList> open(std::shared_ptr<PLFriendsManager> manager);
  /// Its observers hear nothing any more.
  ~FriendList();
  FriendList(const FriendList&) = delete;
  FriendList& operator=(const FriendList&) = delete;

  /// Whether the store has answered.
  bool isLoaded() const;
  /// The list as it is now, with all edits of this program and with what other processes did as far as this one has
  /// heard of it.
  Snapshot snapshot();

  /// Calls the observer for all that happens from the snapshot of now on, until the handle is gone.
  [[nodiscard]] std::shared_ptr<Observation> observe(ListObserver observer);

  /// The picture in the friend's contact; absent without one. May read a file.
  std::optional<ContactPhoto> photo(FriendId id);
  /// A number as it is shown to the user; any other text as it is. Any thread.
  static std::string shownNumber(std::string_view destination);

  /// The friends whom a typed text fits, the best first, at most `limit`: as `ContactSearch::find` does, by names,
  /// numbers and addresses.
  std::vector<FriendId> find(std::string_view text, std::size_t limit);
  /// The contacts whom it fits, friends or not; nobody while the contacts cannot be read.
  std::vector<FoundContact> findContacts(std::string_view text, std::size_t limit);

 private:
  class Core;
  explicit FriendList(std::shared_ptr<Core> core);

  const std::shared_ptr<Core> _core;
};

}  // namespace pellor
