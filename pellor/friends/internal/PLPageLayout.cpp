#include "pellor/friends/internal/PLPageLayout.h"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/friends/internal/PLSkipChecks.h"

namespace pellor {

PLPageLayout::PLPageLayout(Process& process, PLSlotList& friends, const PLDomainSettings& settings,
                           std::function<void()> groupListChanged)
    : _process(process), _friendList(friends), _settings(settings), _groupListChanged(std::move(groupListChanged)) {}

// --- Slots ---

std::shared_ptr<PLPerson> PLPageLayout::_friendAtPosition(std::uint64_t index) const {
  return index < _friendList.count() ? _friendList.at(index) : nullptr;
}

std::uint64_t PLPageLayout::_firstEmptyPosition() const {
  return _friendList.firstEmptyIndex().value_or(static_cast<std::uint64_t>(NotFound));
}

std::uint64_t PLPageLayout::_slotCapacity() const {
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  const std::uint64_t size = _settings.maxFriendsPerGroup();
  return size != 0 && _settings.maxFriendGroups() > largest / size ? largest : _settings.maxFriendGroups() * size;
}

// --- Groups ---

std::uint64_t PLPageLayout::groupSize() const { return _settings.maxFriendsPerGroup(); }

std::optional<std::uint64_t> PLPageLayout::indexOfGroup(const PLFriendGroup& group) const {
  const auto known = _indexes.find(&group);
  return known == _indexes.end() ? std::nullopt : std::optional(known->second);
}

std::uint64_t PLPageLayout::_indexForPositionInGroup(std::uint64_t position, const PLFriendGroup& group) const {
  const auto groupIndex = indexOfGroup(group);
  if (!groupIndex || position >= groupSize()) return std::numeric_limits<std::uint64_t>::max();
  return slotIndex(*groupIndex, groupSize(), position);
}

bool PLPageLayout::_canAddFriendGroup() const { return count() < _settings.maxFriendGroups(); }

// Full groups are passed over once: a later look starts where the last one found room, or where room has come since.
std::shared_ptr<PLFriendGroup> PLPageLayout::firstGroupWithRoom() const {
  checkSkip("groups that are passed over to have no room", [this] { return areSkippedGroupsFull(); });
  while (_firstGroupThatMayHaveRoom < count()) {
    const auto& group = _friendGroups[_firstGroupThatMayHaveRoom];
    if (!group->isFull()) return group;
    ++_firstGroupThatMayHaveRoom;
  }
  return nullptr;
}

void PLPageLayout::noteRoom(std::uint64_t index) {
  _firstGroupThatMayHaveRoom = std::min(_firstGroupThatMayHaveRoom, index);
}

bool PLPageLayout::areSkippedGroupsFull() const {
  const std::uint64_t skipped = std::min<std::uint64_t>(_firstGroupThatMayHaveRoom, count());
  return std::ranges::all_of(std::span(_friendGroups).first(skipped),
                             [](const auto& group) { return group->isFull(); });
}

bool PLPageLayout::_shouldAddEmptyGroup() const {
  if (_friendGroups.empty()) return true;
  if (_canAddFriendGroup() && _friendGroups.back()->count() > 0) return _settings.shouldAddEmptyTrailingGroup();
  return false;
}

void PLPageLayout::appendGroup() {
  auto group = PLFriendGroup::initWithDelegateGroupSize(_delegate, groupSize());
  _indexes.emplace(group.get(), count());
  _friendGroups.push_back(std::move(group));
  _numbers.push_back(++_lastNumber);
  noteOtherPages();
}

void PLPageLayout::_addEmptyGroup() {
  const std::uint64_t index = count();
  appendGroup();
  while (_friendList.count() < (index + 1) * groupSize()) _friendList.append(EmptySlot);
  updateGroup(index);
  _groupListChanged();
}

// The pages of the baseline that are left tell where one of them was taken out.
std::optional<std::uint64_t> PLPageLayout::pageTakenOutAt(std::uint64_t index, const PLBaseline& base) const {
  if (!base.pages) return std::nullopt;
  std::unordered_map<std::uint64_t, std::uint64_t> inBase;
  for (std::uint64_t page = 0; page < base.pages->size(); ++page) inBase.emplace((*base.pages)[page], page);
  std::uint64_t first = 0, end = base.pages->size();
  for (std::uint64_t before = index; before > 0; --before) {
    const auto known = inBase.find(_numbers[before - 1]);
    if (known == inBase.end()) continue;
    first = known->second + 1;
    break;
  }
  for (std::uint64_t behind = index; behind < _numbers.size(); ++behind) {
    const auto known = inBase.find(_numbers[behind]);
    if (known == inBase.end()) continue;
    end = known->second;
    break;
  }
  for (std::uint64_t page = first; page < end; ++page)
    if (std::ranges::find(_numbers, (*base.pages)[page]) == _numbers.end()) return (*base.pages)[page];
  return std::nullopt;
}

std::shared_ptr<PLFriendGroup> PLPageLayout::insertEmptyGroup(std::uint64_t index, const PLBaseline& base) {
  const auto number = pageTakenOutAt(index, base);
  auto group = PLFriendGroup::initWithDelegateGroupSize(_delegate, groupSize());
  _friendGroups.insert(_friendGroups.begin() + static_cast<std::ptrdiff_t>(index), group);
  _numbers.insert(_numbers.begin() + static_cast<std::ptrdiff_t>(index), number ? *number : ++_lastNumber);
  noteOtherPages();
  for (std::uint64_t later = index; later < count(); ++later) _indexes[_friendGroups[later].get()] = later;
  noteRoom(index);
  _friendList.insert(index * groupSize(), groupSize());
  _groupListChanged();
  return group;
}

void PLPageLayout::moveGroup(std::uint64_t from, std::uint64_t to) {
  const auto rotate = [&](auto& values) {
    const auto first = values.begin() + static_cast<std::ptrdiff_t>(std::min(from, to));
    const auto last = values.begin() + static_cast<std::ptrdiff_t>(std::max(from, to)) + 1;
    from < to ? std::rotate(first, first + 1, last) : std::rotate(first, last - 1, last);
  };
  const std::vector<Slot> slots = slotsOfGroup(from);
  rotate(_friendGroups);
  rotate(_numbers);
  _numbers[to] = ++_lastNumber;
  noteOtherPages();
  for (std::uint64_t index = std::min(from, to); index <= std::max(from, to); ++index)
    _indexes[_friendGroups[index].get()] = index;
  _friendList.remove(from * groupSize(), groupSize());
  _friendList.insert(to * groupSize(), groupSize());
  for (std::uint64_t slot = 0; slot < slots.size(); ++slot) _friendList.set(to * groupSize() + slot, slots[slot]);
  noteRoom(std::min(from, to));
  _groupListChanged();
}

void PLPageLayout::_removeGroupAtIndex(std::uint64_t index) {
  if (index >= count()) return;
  const auto removed = _friendGroups[index];
  removed->setDelegate({});
  _indexes.erase(removed.get());
  _friendGroups.erase(_friendGroups.begin() + static_cast<std::ptrdiff_t>(index));
  _numbers.erase(_numbers.begin() + static_cast<std::ptrdiff_t>(index));
  noteOtherPages();
  for (std::uint64_t later = index; later < count(); ++later) _indexes[_friendGroups[later].get()] = later;
  noteRoom(index);
  _friendList.remove(index * groupSize(), groupSize());
  _groupListChanged();
}

void PLPageLayout::dropGroupsFrom(std::uint64_t index) {
  noteRoom(index);
  while (count() > index) {
    _friendGroups.back()->setDelegate({});
    _indexes.erase(_friendGroups.back().get());
    _friendGroups.pop_back();
    _numbers.pop_back();
    noteOtherPages();
  }
}

void PLPageLayout::_updateFriendGroups() {
  const std::uint64_t wanted = std::min(_friendList.count() / groupSize(), _settings.maxFriendGroups());
  const bool removesGroups = count() > wanted;
  dropGroupsFrom(wanted);
  const std::uint64_t firstNewGroup = count();
  while (count() < wanted) appendGroup();
  updateChangedGroups(firstNewGroup);
  // Groups that were only appended are not announced.
  if (_shouldAddEmptyGroup()) {
    _addEmptyGroup();
  } else if (removesGroups) {
    _groupListChanged();
  }
}

std::vector<Slot> PLPageLayout::slotsOfGroup(std::uint64_t index) const {
  std::vector<Slot> group;
  group.reserve(groupSize());
  const std::uint64_t first = index * groupSize();
  for (std::uint64_t slot = first; slot < first + groupSize(); ++slot) group.push_back(_friendList.at(slot));
  return group;
}

// Only the slots that a group is given here are known to be those of the list.
void PLPageLayout::updateGroup(std::uint64_t index) {
  const std::uint64_t& assignments = _process.local<PLUnreportedAssignments>().count;
  const bool wasLaidOut = assignments == _laidOutAssignments;
  _friendGroups[index]->setFriends(slotsOfGroup(index));
  if (wasLaidOut) _laidOutAssignments = assignments;
  noteRoom(index);
}

// A group has its slots as long as they are unchanged and no caller gave it others without a report.
void PLPageLayout::updateChangedGroups(std::uint64_t firstNewGroup) {
  const std::uint64_t& assignments = _process.local<PLUnreportedAssignments>().count;
  const PLSlotSnapshot slots = _friendList.snapshot();
  std::vector<bool> isDue(count(), assignments != _laidOutAssignments);
  std::fill(isDue.begin() + static_cast<std::ptrdiff_t>(firstNewGroup), isDue.end(), true);
  slots.forEachDifferingChunk(_laidOutList, [&](std::uint64_t chunk) {
    const std::uint64_t last = ((chunk + 1) * PLSlotSnapshot::ChunkSize - 1) / groupSize();
    for (auto index = chunk * PLSlotSnapshot::ChunkSize / groupSize(); index <= last && index < isDue.size(); ++index) {
      isDue[index] = true;
    }
  });
  for (std::uint64_t index = 0; index < isDue.size(); ++index) {
    if (isDue[index]) updateGroup(index);
  }
  _laidOutList = slots;
  _laidOutAssignments = assignments;
  checkSkip("groups that are not laid out again to show their slots", [this] { return haveGroupsTheirSlots(); });
}

bool PLPageLayout::haveGroupsTheirSlots() const {
  for (std::uint64_t index = 0; index < count(); ++index) {
    if (_friendGroups[index]->friends() != slotsOfGroup(index)) return false;
  }
  return true;
}

// --- Pages ---

PLPageNumbers PLPageLayout::pageNumbers() {
  if (!_sharedNumbers) _sharedNumbers = std::make_shared<const std::vector<std::uint64_t>>(_numbers);
  return _sharedNumbers;
}

PLPageOrigins PLPageLayout::pagesInBase(const PLBaseline& base) const {
  if (base.pages && base.pages == _sharedNumbers) return {};
  std::unordered_map<std::uint64_t, std::uint64_t> known;
  for (std::uint64_t page = 0; base.pages && page < base.pages->size(); ++page) {
    known.emplace((*base.pages)[page], page);
  }
  PLPageOrigins origins;
  for (const std::uint64_t number : _numbers) {
    const auto found = known.find(number);
    origins.push_back(found == known.end() ? std::nullopt : std::optional(found->second));
  }
  auto appended = origins.size();
  while (appended > 0 && !origins[appended - 1]) --appended;
  for (std::uint64_t next = known.size(); appended < origins.size(); ++appended) origins[appended] = next++;
  return origins;
}

bool PLPageLayout::havePagesMoved(const PLBaseline& base) const {
  const PLPageOrigins pages = pagesInBase(base);
  for (std::uint64_t index = 0; index < pages.size(); ++index) {
    if (pages[index] != index) return true;
  }
  return base.pages && count() < base.pages->size();
}

std::uint64_t PLPageLayout::pageCountOf(const LongArray& list) const {
  return (list.size() + groupSize() - 1) / groupSize();
}

std::optional<std::uint64_t> PLPageLayout::pageInTheirs(std::uint64_t groupIndex, const LongArray& theirs,
                                                        const PLMergeResult* merged) const {
  if (!merged) return groupIndex;
  const PLPageOrigins& origins = merged->theirPages;
  const std::uint64_t mergedCount = origins.empty() ? pageCountOf(merged->list) : origins.size();
  if (groupIndex < mergedCount) return origins.empty() ? std::optional(groupIndex) : origins[groupIndex];
  const std::uint64_t theirCount = pageCountOf(theirs);
  return groupIndex - mergedCount + (origins.empty() ? std::max(theirCount, mergedCount) : theirCount);
}

PLPageNumbers PLPageLayout::pageNumbersOfTheirs(const LongArray& theirs, const PLMergeResult* merged) {
  const std::uint64_t theirCount = pageCountOf(theirs);
  const bool areTheSame = !merged || (merged->theirPages.empty() && pageCountOf(merged->list) >= theirCount);
  if (areTheSame) return pageNumbers();
  std::vector<std::uint64_t> numbers;
  const auto reach = [&](std::uint64_t size) {
    while (numbers.size() < size) numbers.push_back(++_lastNumber);
  };
  for (std::uint64_t index = 0; index < count(); ++index) {
    const auto page = pageInTheirs(index, theirs, merged);
    if (!page) continue;
    reach(*page + 1);
    numbers[*page] = _numbers[index];
  }
  reach(theirCount);
  return std::make_shared<const std::vector<std::uint64_t>>(std::move(numbers));
}

// --- Invariants ---

std::optional<std::string> PLPageLayout::violation() const {
  if (_indexes.size() != count()) return "one index entry per group";
  if (_numbers.size() != count()) return "one page per group";
  const auto delegate = _delegate.lock();
  for (std::uint64_t index = 0; index < count(); ++index) {
    if (indexOfGroup(*_friendGroups[index]) != index) return "every group known by its place";
    if (_friendGroups[index]->delegate() != delegate) return "every group reporting to its manager";
  }
  const bool hasSlots = count() <= std::numeric_limits<std::uint64_t>::max() / groupSize() &&
                        _friendList.count() >= count() * groupSize();
  return hasSlots ? std::nullopt : std::optional<std::string>("slots for every group");
}

}  // namespace pellor
