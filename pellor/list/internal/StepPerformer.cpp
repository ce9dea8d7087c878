#include "pellor/list/internal/StepPerformer.h"

#include <algorithm>
#include <set>
#include <utility>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLMergeFields.h"

namespace pellor {
namespace {

void setMetadata(PLPerson& person, const std::vector<std::pair<std::string, std::optional<Value>>>& entries) {
  Dictionary all = person.metadata();
  bool removes = false;
  for (const auto& [key, value] : entries) {
    if (value) {
      all.insert_or_assign(key, *value);
    } else {
      removes = all.erase(key) > 0 || removes;
    }
  }
  if (removes) person.removeAllMetadataValues();
  person.addMetadataEntriesFromDictionary(all);
}

void setEntries(PLPerson& person, const FieldEdit& field) {
  Dictionary form = person.dictionaryRepresentation();
  if (field.card) {
    for (const auto& [key, value] : blockOfForm(form)) form.erase(key);
    form.insert(field.card->begin(), field.card->end());
  }
  for (const auto& [key, value] : field.others) {
    form.erase(key);
    if (value) form.emplace(key, *value);
  }
  person.updateFromDictionaryRepresentation(form);
  person.setNeedsSave(true);
}

}  // namespace

StepPerformer::StepPerformer(PLFriendsManager& manager, const FriendIds& ids, const ListStep& step)
    : _manager(manager), _ids(ids), _step(step) {}

// Groups come and go while nobody stands on them, and newcomers last: a page is due behind the last one when somebody
// comes onto it, and is there already.
void StepPerformer::perform() {
  sort();
  removeLeavers();
  if (_step.draft.changesPages()) {
    liftMoved();
    arrangePages();
  }
  setContents();
  putNewcomers();
  setTitles();
  setFields();
}

void StepPerformer::sort() {
  for (const FriendId id : _step.draft.touchedFriends()) {
    const auto from = _step.draft.before().placeOf(id);
    const auto to = _step.draft.placeOf(id);
    if (from && !to) _leavers.push_back({id, *from});
    if (!from && to) _comers.push_back(id);
    if (from && to && !_step.draft.isWhereItWas(id)) _moved.push_back({id, *from});
  }
  std::ranges::sort(_leavers, {}, &Move::from);
  std::ranges::sort(_moved, {}, [this](const Move& move) { return *_step.draft.placeOf(move.id); });
  std::ranges::sort(_comers, {}, [this](FriendId id) { return *_step.draft.placeOf(id); });
}

std::shared_ptr<PLPerson> StepPerformer::personOf(FriendId id) const {
  const auto comer = _step.newcomers.find(id);
  return comer == _step.newcomers.end() ? _ids.personWith(id) : comer->second;
}

// In a step groups go by request alone, and one that the manager adds is the last: their indexes hold.
StepPerformer::Group StepPerformer::groupAt(std::size_t index) const { return _manager.friendGroups()[index]; }

void StepPerformer::removeLeavers() {
  for (const Move& leaver : _leavers) groupAt(leaver.from.page)->removeFriendAtPosition(leaver.from.slot);
}

void StepPerformer::liftMoved() {
  std::map<std::size_t, std::vector<std::shared_ptr<PLPerson>>> contents;
  for (const Move& move : _moved) {
    const auto content = contents.try_emplace(move.from.page, groupAt(move.from.page)->friends()).first;
    content->second[move.from.slot] = nullptr;
  }
  for (auto& [index, content] : contents) {
    const Group group = groupAt(index);
    group->setFriends(std::move(content));
    _manager.friendGroupDidMoveFriends(group, {});
  }
}

void StepPerformer::removePages() {
  const Snapshot& before = _step.draft.before();
  for (std::size_t index = before.pageCount(); index > 0; --index) {
    const PageId id = before.page(index - 1).id;
    if (_step.draft.indexOf(id)) {
      _pages.push_back(id);
    } else {
      _manager.editor().removeFriendGroupAtIndex(index - 1);
    }
  }
  std::ranges::reverse(_pages);
  // The manager keeps its only group, which becomes the first page that comes. Where a clean-up took that there is
  // none.
  if (!_pages.empty() || _manager.friendGroups().empty()) return;
  _pages.push_back(_step.draft.pageId(0));
  _manager.friendGroups().front()->setTitle(std::nullopt);
}

// From the first page on, each gets its place. Where one went to a later place the others are moved up by moving it.
void StepPerformer::arrangePages() {
  removePages();
  for (std::size_t index = 0; index < _step.draft.pageCount(); ++index) {
    const PageId wanted = _step.draft.pageId(index);
    const auto place = [&](std::size_t at) { return _pages.begin() + static_cast<std::ptrdiff_t>(at); };
    const auto found = std::find(place(index), _pages.end(), wanted);
    if (found == _pages.end()) {
      _manager.editor().insertEmptyGroupAtIndex(index);
      _pages.insert(place(index), wanted);
    } else if (found == place(index + 1)) {
      const std::size_t to = std::min(*_step.draft.indexOf(_pages[index]), _pages.size() - 1);
      _manager.editor().moveFriendGroupToIndex(index, to);
      std::rotate(place(index), place(index + 1), place(to) + 1);
    } else if (found != place(index)) {
      _manager.editor().moveFriendGroupToIndex(static_cast<std::size_t>(found - _pages.begin()), index);
      std::rotate(place(index), found, found + 1);
    }
  }
}

// All groups get their content before any of them reports it: a friend stands somewhere all the time.
void StepPerformer::setContents() {
  std::map<std::size_t, std::vector<std::shared_ptr<PLPerson>>> moved;
  for (const Move& move : _moved) {
    moved[_step.draft.placeOf(move.id)->page].push_back(personOf(move.id));
    if (const auto left = _step.draft.indexOf(_step.draft.before().page(move.from.page).id)) moved[*left];
  }
  for (const auto& [index, persons] : moved) {
    std::vector<std::shared_ptr<PLPerson>> content;
    for (const FriendId id : _step.draft.friendsOn(index))
      content.push_back(_step.newcomers.contains(id) ? nullptr : personOf(id));
    groupAt(index)->setFriends(std::move(content));
  }
  for (const auto& [index, persons] : moved) _manager.friendGroupDidMoveFriends(groupAt(index), persons);
}

void StepPerformer::putNewcomers() {
  for (const FriendId id : _comers) {
    const Place place = *_step.draft.placeOf(id);
    std::uint32_t error = PLFriendGroupErrorNone;
    groupAt(place.page)->setFriendAtPosition(personOf(id), place.slot, error);
  }
}

// A group takes its title along; somebody may have set one of which nobody was told yet.
void StepPerformer::setTitles() {
  const auto renamed = _step.draft.renamedPages();
  for (const std::size_t index : renamed) groupAt(index)->setTitle(_step.draft.title(index));
  if (!renamed.empty()) _manager.saveFriendGroupTitles();
}

void StepPerformer::setFields() {
  for (const FieldEdit& field : _step.fields) {
    const auto person = personOf(field.id);
    if (!person) continue;
    if (field.chosenNumber) person->setPreferredDestination(*field.chosenNumber);
    if (field.replyAs) person->setPreferredReplyAs(*field.replyAs);
    if (!field.metadata.empty()) setMetadata(*person, field.metadata);
    if (field.card || !field.others.empty()) setEntries(*person, field);
  }
}

}  // namespace pellor
