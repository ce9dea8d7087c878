#include "pellor/friends/internal/PLContactsRefresh.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Timer.h"

namespace pellor {
namespace {

// How many friends' records are in memory at once during a refresh.
constexpr std::size_t FriendsReadAtOnce = 1000;
// Seconds from a change of the contacts to the refresh for it, which is one for all changes until then.
constexpr double DelayAfterChange = 0.2;

}  // namespace

PLContactsRefresh::PLContactsRefresh(Process& process, std::string domain, const PLSlotList& friends,
                                     PLListWriter& writer, PLExceptions& exceptions, Handlers handlers)
    : _process(process),
      _domain(std::move(domain)),
      _friendList(friends),
      _writer(writer),
      _exceptions(exceptions),
      _handlers(std::move(handlers)),
      _hold(process, _handlers.refresh) {}

void PLContactsRefresh::noteContactsChanged() {
  // Also while the timer is set: a refresh may have run since.
  noteDue();
  if (_timer && _timer->isValid()) return;
  _timer = Timer::after(_process.mainQueue(), DelayAfterChange, _handlers.refresh);
}

bool PLContactsRefresh::refreshFriends() {
  bool didRefresh = false;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    didRefresh = addressBook.isReadable() && !_hold.holdsBack() && refreshFriends(addressBook);
  });
  return didRefresh;
}

// A friend that another look would not change is passed over. The number is taken over only when all could be looked
// up, so that a refresh that was cut short stays due.
bool PLContactsRefresh::refreshFriends(AddressBook& addressBook) {
  _PLGetLogSystem().log(LogFormat("refreshing friends against address book").as("_refreshFriends"));
  // Read before the records: what another process changes meanwhile is due after this refresh.
  const std::int32_t number = addressBook.sequenceNumber();
  _exceptions.dropByContacts(addressBook);
  _reconciliation.begin(*platformOf(_process).addressBook, addressBook, _friendList.count());
  const std::vector<std::uint64_t> indices = indicesOfFriendsToRefresh(addressBook);
  for (std::size_t first = 0; first < indices.size(); first += FriendsReadAtOnce) {
    const std::size_t count = std::min(FriendsReadAtOnce, indices.size() - first);
    refreshFriendsAtIndices(std::span(indices).subspan(first, count), addressBook);
  }
  const bool isComplete = addressBook.isReadable();
  _reconciliation.end(isComplete);
  if (!isComplete) return false;
  _updateLastKnownAddressBookSequenceNumber(number);
  _hold.noteRefresh();
  return true;
}

std::vector<std::uint64_t> PLContactsRefresh::indicesOfFriendsToRefresh(AddressBook& addressBook) {
  std::vector<std::uint64_t> indices;
  for (std::uint64_t index = 0; index < _friendList.count(); ++index) {
    const Slot& person = _friendList.at(index);
    if (!person) continue;
    const bool isInStep = !_exceptions.limit(*person) && _reconciliation.passOver(index, *person, addressBook);
    if (!isInStep) indices.push_back(index);
  }
  return indices;
}

void PLContactsRefresh::refreshFriendsAtIndices(std::span<const std::uint64_t> indices, AddressBook& addressBook) {
  std::vector<std::string_view> guids;
  for (const std::uint64_t index : indices) {
    const std::string_view guid = _friendList.at(index)->record().identifyingGUID();
    if (!guid.empty()) guids.push_back(guid);
  }
  addressBook.withPeopleMatchingGUIDs(guids, [&] {
    for (const std::uint64_t index : indices) {
      const Slot person = _friendList.at(index);
      const bool isLimited = _exceptions.limit(*person);
      const PLLinkLimits limits = isLimited ? _exceptions.limitsFor(*person) : PLLinkLimits();
      const auto decision = person->refreshWithAddressBook(&addressBook, limits);
      if (decision) _handlers.decidedOn(*decision);
      // What the limits kept from a friend is due once they are gone.
      if (!isLimited) _reconciliation.note(index, *person);
    }
  });
}

// Absent when the store cannot be read: then nobody knows whether the contacts changed, and nothing is written.
std::optional<std::int32_t> PLContactsRefresh::_lastKnownAddressBookSequenceNumber() {
  if (_ownSequenceNumber) return _ownSequenceNumber;
  PreferencesStore& preferences = *platformOf(_process).preferences;
  preferences.synchronize(_domain);
  const auto answer = preferences.integerValue(PLAddressBookSequenceNumberKey, _domain);
  if (!answer.isReadable()) return std::nullopt;
  return static_cast<std::int32_t>(answer.value().value_or(0));
}

// It goes out with the list that the refresh changed: stored before it, others would take the list for refreshed.
void PLContactsRefresh::_updateLastKnownAddressBookSequenceNumber(std::int32_t number) {
  const auto known = _lastKnownAddressBookSequenceNumber();
  if (!known || *known == number) return;
  _ownSequenceNumber = number;
  _writer.keepSequenceNumber(number);
}

bool PLContactsRefresh::_addressBookSequenceNumberDidChange() {
  bool didChange = false;
  platformOf(_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const auto known = _lastKnownAddressBookSequenceNumber();
    const std::int32_t number = addressBook.sequenceNumber();
    didChange = known && *known != number && addressBook.isReadable();
  });
  return didChange;
}

void PLContactsRefresh::noteWritten(std::optional<std::int32_t> sequenceNumber) {
  if (sequenceNumber == _ownSequenceNumber) _ownSequenceNumber.reset();
}

}  // namespace pellor
