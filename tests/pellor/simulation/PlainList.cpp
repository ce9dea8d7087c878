#include "tests/pellor/simulation/PlainList.h"

#include <algorithm>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"

namespace pellor {
namespace {

std::string shortName(const FriendName& name) { return name.empty() ? "-" : name.substr(0, name.find('@')); }

}  // namespace

std::string PlainFriend::text() const {
  std::string text = replyAs;
  for (const auto& [key, value] : metadata) text += (text.empty() ? "" : ", ") + key + "=" + value;
  return text.empty() ? text : "{" + text + "}";
}

bool PlainPage::isEmpty() const { return std::ranges::all_of(slots, &FriendName::empty); }

std::optional<PlainPlace> PlainList::placeOf(const FriendName& name) const {
  for (std::size_t page = 0; page < pages.size(); ++page) {
    const auto& slots = pages[page].slots;
    const auto found = std::ranges::find(slots, name);
    if (found != slots.end()) return PlainPlace{page, static_cast<std::size_t>(found - slots.begin())};
  }
  return std::nullopt;
}

std::string PlainList::text() const {
  std::string text;
  for (const PlainPage& page : pages) {
    text += (text.empty() ? "" : " | ") + (page.title.empty() ? "" : page.title + ": ");
    for (std::size_t position = 0; position < page.slots.size(); ++position) {
      const auto known = friends.find(page.slots[position]);
      text += (position == 0 ? "" : " ") + shortName(page.slots[position]) +
              (known == friends.end() ? "" : known->second.text());
    }
  }
  return text;
}

FriendName nameOf(const PLPerson& person) {
  const PLPersonRecord& record = person.record();
  return FriendName(record.destination(record.destinationCount() - 1));
}

PlainFriend plainFriendOf(const PLPerson& person) {
  PlainFriend result{person.preferredReplyAs().value_or(""), {}, {}};
  for (const auto& [key, value] : person.metadata()) {
    if (const std::string* text = value.string()) result.metadata.emplace(key, *text);
  }
  const Dictionary stored = person.dictionaryRepresentation();
  if (const Value* later = valueForKey(stored, LaterKey)) result.later = *later->string();
  return result;
}

PlainList plainListOf(const PLFriendsManager& manager) {
  PlainList list;
  for (const auto& group : manager.friendGroups()) {
    PlainPage& page = list.pages.emplace_back();
    page.title = group->title().value_or("");
    for (const auto& person : group->friends()) {
      page.slots.push_back(person ? nameOf(*person) : FriendName());
      if (!person) continue;
      const bool isNew = list.friends.emplace(page.slots.back(), plainFriendOf(*person)).second;
      if (!isNew) list.doubled.insert(page.slots.back());
    }
  }
  return list;
}

}  // namespace pellor
