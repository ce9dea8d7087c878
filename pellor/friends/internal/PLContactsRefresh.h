// Brings friends in step with the contacts.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "pellor/friends/internal/PLReconciliationState.h"
#include "pellor/friends/internal/PLRefreshHold.h"
#include "pellor/platform/AddressBookStore.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class PLExceptions;
class PLListWriter;
class PLSlotList;
class Timer;
struct PLAutomaticDecision;

/// Lets friends find their records again, and keeps the sequence number of the contacts in the store. Its invariant: a
/// number is kept only after every friend was looked up in contacts of that number, and goes out with the list that
/// this changed. Main queue.
class PLContactsRefresh {
 public:
  struct Handlers {
    std::function<void()> refresh;                              ///< asks for a refresh that is due
    std::function<void(const PLAutomaticDecision&)> decidedOn;  ///< tells of a decision about a friend's link
  };

  /// List, writer and exceptions outlive this object.
  PLContactsRefresh(Process& process, std::string domain, const PLSlotList& friends, PLListWriter& writer,
                    PLExceptions& exceptions, Handlers handlers);

  /// Whether refreshing is enabled: until the store has answered what a caller said, else the setting.
  bool isEnabled() const { return _isEnabled; }
  /// A caller enables or disables it. The setting that is read later does not overrule this.
  void setEnabled(bool enabled, bool isBeforeSettings) {
    _isEnabled = enabled;
    _isSaidBeforeSettings = _isSaidBeforeSettings || isBeforeSettings;
  }
  void readSetting(bool enabled) {
    if (!std::exchange(_isSaidBeforeSettings, false)) _isEnabled = enabled;
  }
  /// A refresh is due, whether or not the contacts changed.
  void noteDue() { _isDue = true; }
  /// The contacts changed: a refresh is due, and is asked for in a moment, once for all changes until then.
  void noteContactsChanged();
  /// Whether a refresh is to run: it is enabled, and due or the contacts changed.
  bool isToRun() { return (_isDue || _addressBookSequenceNumberDidChange()) && _isEnabled; }
  /// A refresh ran, and what it changed was told.
  void noteRan() { _isDue = false; }

  /// Whether the contacts are others than at the last refresh of any process; false when they or the store cannot be
  /// read.
  bool _addressBookSequenceNumberDidChange();
  /// Brings every friend in step that may not be. Whether the refresh ran to its end: not while it is held back because
  /// most of the contacts are gone, nor when they cannot be read.
  bool refreshFriends();
  /// Whether the last refresh that was due was held back.
  bool isHeld() const { return _hold.isHolding(); }
  /// The store has taken that number; absent: none.
  void noteWritten(std::optional<std::int32_t> sequenceNumber);

 private:
  bool refreshFriends(AddressBook& addressBook);
  std::vector<std::uint64_t> indicesOfFriendsToRefresh(AddressBook& addressBook);
  void refreshFriendsAtIndices(std::span<const std::uint64_t> indices, AddressBook& addressBook);
  std::optional<std::int32_t> _lastKnownAddressBookSequenceNumber();
  void _updateLastKnownAddressBookSequenceNumber(std::int32_t number);

  Process& _process;
  const std::string _domain;
  const PLSlotList& _friendList;
  PLListWriter& _writer;
  PLExceptions& _exceptions;
  const Handlers _handlers;
  PLRefreshHold _hold;
  PLReconciliationState _reconciliation;
  std::optional<std::int32_t> _ownSequenceNumber;  // that is not stored yet
  bool _isEnabled = true;
  bool _isSaidBeforeSettings = false;
  bool _isDue = false;
  std::shared_ptr<Timer> _timer;
};

}  // namespace pellor
