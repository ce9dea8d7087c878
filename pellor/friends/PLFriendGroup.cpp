#include "pellor/friends/PLFriendGroup.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLBundle.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLMainQueueCheck.h"
#include "pellor/friends/internal/PLPosting.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

constexpr std::uint64_t DefaultGroupSize = 10;
constexpr std::string_view CompleteArray = "as many entries from setFriends as the group has slots";

// What stands for a friend without a name: the part of an e-mail address before the "@", or the number. To show a
// number as a name takes longer than all the rest of an edit. Being asked for its name makes a person keep its primary
// destination, whether or not the log is heard.
std::optional<std::string> loggedName(const PLPerson& person) {
  if (_PLGetLogSystem().isHeard()) return person.displayName();
  if (!person.hasName()) person.primaryDestination();
  return std::nullopt;
}

std::string shortDestination(const std::string& displayName) {
  if (plMessageDestinationType(displayName) != PLMessageDestinationTypeEmail) return displayName;
  return displayName.substr(0, displayName.find('@'));
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string result = texts.front();
  for (std::size_t index = 1; index < texts.size(); ++index) result.append(separator).append(texts[index]);
  return result;
}

}  // namespace

PLFriendGroup::PLFriendGroup(Passkey, std::uint64_t size)
    : _process(Process::current()), _friendsManager(size), _groupSize(size) {}

std::shared_ptr<PLFriendGroup> PLFriendGroup::init() { return initWithGroupSize(DefaultGroupSize); }

std::shared_ptr<PLFriendGroup> PLFriendGroup::initWithGroupSize(std::uint64_t size) {
  return std::make_shared<PLFriendGroup>(Passkey{}, size);
}

std::shared_ptr<PLFriendGroup> PLFriendGroup::initWithDelegateGroupSize(std::weak_ptr<PLFriendGroupDelegate> delegate,
                                                                        std::uint64_t size) {
  auto group = initWithGroupSize(size);
  group->_delegate = std::move(delegate);
  return group;
}

// --- Queries ---

std::shared_ptr<PLPerson> PLFriendGroup::friendAtPosition(std::uint64_t position) const {
  _checkQueue("PLFriendGroup::friendAtPosition");
  return position < _groupSize ? _slotAt(position) : EmptySlot;
}

std::uint64_t PLFriendGroup::positionOfFriend(const std::shared_ptr<PLPerson>& person) const {
  _checkQueue("PLFriendGroup::positionOfFriend");
  const auto slot = std::ranges::find(_friendsManager, person);
  if (person == EmptySlot || slot == _friendsManager.end()) return NotFound;
  return static_cast<std::uint64_t>(slot - _friendsManager.begin());
}

bool PLFriendGroup::containsFriend(const std::shared_ptr<PLPerson>& person) const {
  return positionOfFriend(person) != NotFound;
}

std::uint64_t PLFriendGroup::count() const {
  _checkQueue("PLFriendGroup::count");
  return _occupiedCount;
}

bool PLFriendGroup::isFull() const { return _firstEmptyPosition() == NotFound; }

const std::vector<std::shared_ptr<PLPerson>>& PLFriendGroup::friends() const {
  _checkQueue("PLFriendGroup::friends");
  return _friendsManager;
}

std::optional<std::string> PLFriendGroup::displayNameForGroupWithSeparator(std::string_view separator) const {
  _checkQueue("PLFriendGroup::displayNameForGroupWithSeparator");
  const Process::Scope scope(_process);
  if (_title && !_title->empty()) return _title;
  std::vector<std::string> names;
  std::vector<std::string> unnamed;
  for (const Slot& slot : _friendsManager) {
    auto displayName = slot ? slot->displayName() : std::nullopt;
    if (displayName) (slot->hasName() ? names : unnamed).push_back(std::move(*displayName));
  }
  std::ranges::transform(unnamed, std::back_inserter(names), shortDestination);
  if (names.empty()) return std::nullopt;
  return joined(names, separator);
}

// --- Changes, reported to the delegate ---

void PLFriendGroup::addFriend(const std::shared_ptr<PLPerson>& person, std::uint32_t& error) {
  const std::int64_t position = _firstEmptyPosition();
  if (position != NotFound) return setFriendAtPosition(person, static_cast<std::uint64_t>(position), error);
  const Process::Scope scope(_process);
  _PLGetLogSystem().log("unable to add friend: capacity reached");
  error = PLFriendGroupErrorCapacityReached;
}

void PLFriendGroup::setFriendAtPosition(std::shared_ptr<PLPerson> person, std::uint64_t position,
                                        std::uint32_t& error) {
  _checkQueue("PLFriendGroup::setFriendAtPosition");
  const Process::Scope scope(_process);
  if (position >= _groupSize) {
    _PLGetLogSystem().log("unable to add friend at position %tu: out of range", position);
    error = PLFriendGroupErrorOutOfRange;
    return;
  }
  // The delegate may drop the group while it is told.
  const auto self = shared_from_this();
  if (person) {
    _PLGetLogSystem().log("setting [%@] in friend list at position %tu", redactable(loggedName(*person)), position);
    _storeInSlot(person, position);
    if (auto delegate = _delegate.lock()) delegate->friendGroupDidSetFriendAtPosition(self, person, position);
  } else {
    _PLGetLogSystem().log("setting empty slot in friend list at position %tu", position);
    _storeInSlot(EmptySlot, position);
    // Without the person, even if one stood there: nobody was removed, an empty slot was set.
    if (auto delegate = _delegate.lock()) delegate->friendGroupDidRemoveFriendAtPosition(self, nullptr, position);
  }
  error = PLFriendGroupErrorNone;
}

void PLFriendGroup::removeFriendAtPosition(std::uint64_t position) {
  const Process::Scope scope(_process);
  // Both are held: the delegate may drop them while it is told.
  const auto removed = friendAtPosition(position);
  const auto self = shared_from_this();
  if (!removed) return _PLGetLogSystem().log("Position %lu is already empty", position);
  _storeInSlot(EmptySlot, position);
  _PLGetLogSystem().log("Removing friend [%@] from position %lu in friend group", redactable(loggedName(*removed)),
                        position);
  if (auto delegate = _delegate.lock()) delegate->friendGroupDidRemoveFriendAtPosition(self, removed, position);
}

// --- Changes that are not reported ---

void PLFriendGroup::setFriends(std::vector<std::shared_ptr<PLPerson>> friends) {
  _checkQueue("PLFriendGroup::setFriends");
  ++_process.local<PLUnreportedAssignments>().count;
  _friendsManager = std::move(friends);
  const auto emptyCount = std::ranges::count(_friendsManager, EmptySlot);
  _occupiedCount = _friendsManager.size() - static_cast<std::uint64_t>(emptyCount);
  _lowestEmptyPosition = 0;
  _skipOccupiedSlots();
}

std::optional<std::string> PLFriendGroup::title() const {
  _checkQueue("PLFriendGroup::title");
  return _title;
}

void PLFriendGroup::setTitle(std::optional<std::string> title) {
  _checkQueue("PLFriendGroup::setTitle");
  if (_title == title) return;
  _title = std::move(title);
  ++_process.local<PLTitleAssignments>().count;
  postOnMainQueue(_process, PLFriendGroupTitleChangedNotification, weak_from_this());
}

std::uint64_t PLFriendGroup::selectedPosition() const {
  _checkQueue("PLFriendGroup::selectedPosition");
  return _selectedPosition;
}

void PLFriendGroup::setSelectedPosition(std::uint64_t position) {
  _checkQueue("PLFriendGroup::setSelectedPosition");
  _selectedPosition = position;
}

std::shared_ptr<PLFriendGroupDelegate> PLFriendGroup::delegate() const {
  _checkQueue("PLFriendGroup::delegate");
  return _delegate.lock();
}

void PLFriendGroup::setDelegate(std::weak_ptr<PLFriendGroupDelegate> delegate) {
  _checkQueue("PLFriendGroup::setDelegate");
  _delegate = std::move(delegate);
}

// --- Slots ---

std::int64_t PLFriendGroup::_firstEmptyPosition() const {
  _checkQueue("PLFriendGroup::_firstEmptyPosition");
  if (_lowestEmptyPosition >= _groupSize) return NotFound;
  require(_lowestEmptyPosition < _friendsManager.size(), CompleteArray);
  return static_cast<std::int64_t>(_lowestEmptyPosition);
}

const std::shared_ptr<PLPerson>& PLFriendGroup::_slotAt(std::uint64_t position) const {
  require(position < _friendsManager.size(), CompleteArray);
  return _friendsManager[position];
}

void PLFriendGroup::_storeInSlot(std::shared_ptr<PLPerson> person, std::uint64_t position) {
  if (_slotAt(position)) --_occupiedCount;
  if (person) ++_occupiedCount;
  if (!person) _lowestEmptyPosition = std::min(_lowestEmptyPosition, position);
  _friendsManager[position] = std::move(person);
  _skipOccupiedSlots();
}

void PLFriendGroup::_skipOccupiedSlots() {
  const std::uint64_t end = std::min<std::uint64_t>(_groupSize, _friendsManager.size());
  while (_lowestEmptyPosition < end && _friendsManager[_lowestEmptyPosition]) ++_lowestEmptyPosition;
}

void PLFriendGroup::_checkQueue(std::string_view operation) const { checkMainQueue(_process, operation); }

}  // namespace pellor
