// What friends had who left the list, for a while.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Value.h"

namespace pellor {

class PLFriendsManager;

/// Those whom a step removed and who had something of their own: a reply preference, a chosen number, metadata. Each
/// once, with the stored form of that moment, in the order of their removal; stored with the list. Who comes back
/// leaves this memory, and so does with the next change of it anybody who is in it for 30 days. Main queue.
class RemovedFriends {
 public:
  static inline const std::string Key = "PLFriendListRemoved";
  static constexpr std::size_t MostFriends = 200;
  static constexpr double KeptFor = 30.0 * 86400;  ///< in seconds
  /// A friend whose stored form takes more bytes of CBOR is not remembered.
  static constexpr std::size_t LargestForm = std::size_t{64} << 10;

  /// What a step did to somebody in the memory. Absent: was not, or is not, in it.
  struct Change {
    std::string id;
    std::optional<Value> before;
    std::optional<Value> after;
  };
  using Changes = std::vector<Change>;

  /// `clock`: in seconds since 1970.
  RemovedFriends(std::shared_ptr<PLFriendsManager> manager, std::function<double()> clock);

  /// The form of somebody who left less than 30 days ago; absent for anybody else. A time to come counts as now.
  std::optional<Dictionary> formOf(const FriendIdentity& identity);

  // Within a step of the manager, or while steps are judged.

  /// The forms of those whom a step took out of the list and brought into it.
  Changes note(const std::vector<Dictionary>& left, const std::vector<Dictionary>& came);
  /// The step is none any more; what later ones changed stays.
  void takeBack(const Changes& changes);
  /// All for whom this is true leave the memory.
  void forget(const std::function<bool(const Dictionary& form)>& isTheirs);

  /// The forms of all in it, also of those whose time is over.
  std::vector<Dictionary> forms();

 private:
  struct Entry {
    std::string id;
    double time = 0;   ///< of the removal
    double doubt = 0;  ///< when the clock first said that it is far too long ago; 0: it never did
    Dictionary form;
    std::size_t index = 0;  ///< in the array that was read
    bool isChanged = false;
  };
  static std::optional<Entry> entryOf(const Value& value);
  static Value valueOf(const Entry& entry);
  const std::vector<Entry>& entries();
  void write(std::vector<Entry> entries);
  void tidy(std::vector<Entry>& entries) const;

  const std::shared_ptr<PLFriendsManager> _manager;
  const std::function<double()> _clock;
  LongArray _read;  // what the entries were made of
  std::vector<Entry> _entries;
};

/// Whether there is anything in that form that somebody who comes back gets.
bool hasOwnEntries(const Dictionary& form);

}  // namespace pellor
