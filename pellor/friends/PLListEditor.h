// Edits of a friends manager's list that are stored together, and what else is stored with the list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "pellor/friends/PLStepClient.h"

namespace pellor {

class LongArray;
class PLFriendGroup;
class PLFriendsManager;
class PLPendingChanges;
class Process;
struct PLFriendsManagerParts;

/// The editor of one manager, see `PLFriendsManager::editor`. Main queue.
class PLListEditor {
 public:
  // --- Steps ---

  /// Makes several edits one step: what `edits` does by the operations of the manager, of its groups and of its persons
  /// goes out in one write after it has returned. Groups that lose their last friend stay. Steps do not nest (fatal),
  /// and `edits` must neither throw nor run the main queue. Asks for a save. The number of the step, greater than all
  /// before.
  std::uint64_t performStep(const std::function<void()>& edits);
  /// The client is held weakly; null: nobody is told, and nobody asked. It is told, inside the call, of decisions that
  /// were made before and of favorites that were left out, if the list was not written since.
  void setStepClient(std::weak_ptr<PLStepClient> client);

  // --- Groups that come, go and move ---

  // PLFriendsManagerGroupListChanged is posted, and the list saved. Nothing happens for an index beyond the end. An
  // empty trailing group is added where one is due.
  /// Puts an empty group, without a title, before the one with that index; the number of groups: behind the last one.
  /// Where a group was removed that other processes have, as far as is known, it is the same page to them. Null when
  /// there may be no more groups, and before there is a list.
  std::shared_ptr<PLFriendGroup> insertEmptyGroupAtIndex(std::uint64_t index);
  /// Removes a group with its slots and its title; the friends in it leave the list, each recorded as deleted. The only
  /// group stays, empty. False when there is none.
  bool removeFriendGroupAtIndex(std::uint64_t index);
  /// Gives a group another index, with its slots and its title; those between shift. Its friends are recorded as moved.
  bool moveFriendGroupToIndex(std::uint64_t from, std::uint64_t to);

  // --- Attached arrays ---

  // Arrays of dictionaries, each known by the text under "id", by which edits of several processes are merged. They are
  // not pushed to the paired device.
  /// Reads and writes the array under this key of the domain from now on, of which the newest `mostElements` stay: the
  /// last, or those with the highest integer under `order`, for which elements that were added beside others' are
  /// numbered anew above these. With `order` it is a history, and in each write of list or titles. A stored value that
  /// is no array counts as empty, and is replaced. Before the store has answered all are empty.
  void attach(const std::string& key, std::size_t mostElements, const std::string& order = {});
  const LongArray& attached(const std::string& key) const;
  /// Goes out with the step that is being made, else with a save, for which it asks. Ignored for a key not attached.
  void setAttached(const std::string& key, LongArray elements);

 private:
  friend class PLFriendsManager;
  struct Handlers {
    std::function<bool()> isLoaded;
    std::function<void()> postChanges;
    std::function<void()> checkInvariants;
  };
  PLListEditor(Process& process, PLFriendsManagerParts& parts, PLPendingChanges& pendingChanges, Handlers handlers);

  Process& _process;
  PLFriendsManagerParts& _parts;
  PLPendingChanges& _pendingChanges;
  const Handlers _handlers;
};

}  // namespace pellor
