#include "pellor/list/internal/RemovedFriends.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/LongArrayElements.h"

namespace pellor {
namespace {

// Nobody stays away for so long as often as a clock is wrong by it. It gets time to be set right.
constexpr double Implausible = 365.0 * 86400;
constexpr double TimeToBeSetRight = 86400;

std::string idOf(const FriendIdentity& identity) {
  if (!identity.guid.empty() || identity.destinations.empty()) return identity.guid;
  return identity.destinations.front();
}

std::optional<double> timeIn(const Dictionary& entries, std::string_view key) {
  const Value* value = valueForKey(entries, key);
  const auto time = value ? value->real() : std::nullopt;
  return time && std::isfinite(*time) ? std::optional(*time) : std::nullopt;
}

// In an array, as it is stored.
bool fits(const Value& value) {
  const auto bytes = encodeCBOR(Array{value});
  return bytes && bytes->size() <= RemovedFriends::LargestForm;
}

}  // namespace

bool hasOwnEntries(const Dictionary& form) {
  const Value* metadata = valueForKey(form, PLPersonMetadataKey);
  return valueForKey(form, PLPersonReplyAsKey) || valueForKey(form, PLPersonPreferredDestinationKey) ||
         (metadata && metadata->dictionary() && !metadata->dictionary()->empty());
}

RemovedFriends::RemovedFriends(std::shared_ptr<PLFriendsManager> manager, std::function<double()> clock)
    : _manager(std::move(manager)), _clock(std::move(clock)) {
  _manager->editor().attach(Key, MostFriends);
}

std::optional<RemovedFriends::Entry> RemovedFriends::entryOf(const Value& value) {
  const Dictionary* entries = value.dictionary();
  if (!entries) return std::nullopt;
  const auto time = timeIn(*entries, "time");
  const Value* form = valueForKey(*entries, "form");
  Entry entry;
  entry.id = stringForKey(*entries, "id").value_or(std::string());
  if (entry.id.empty() || !time || !form || !form->dictionary()) return std::nullopt;
  entry.time = *time;
  entry.doubt = timeIn(*entries, "doubt").value_or(0);
  entry.form = *form->dictionary();
  return entry;
}

Value RemovedFriends::valueOf(const Entry& entry) {
  Dictionary entries{{"id", entry.id}, {"time", entry.time}, {"form", entry.form}};
  if (entry.doubt != 0) entries.emplace("doubt", entry.doubt);
  return entries;
}

// What is none of these is left out, and goes with the next write.
const std::vector<RemovedFriends::Entry>& RemovedFriends::entries() {
  const LongArray stored = _manager->editor().attached(Key);
  if (stored.chunks() == _read.chunks()) return _entries;
  _read = stored;
  _entries.clear();
  for (std::size_t index = 0; index < stored.size(); ++index) {
    auto entry = entryOf(stored.at(index));
    if (!entry) continue;
    entry->index = index;
    _entries.push_back(*std::move(entry));
  }
  return _entries;
}

std::vector<Dictionary> RemovedFriends::forms() {
  std::vector<Dictionary> forms;
  for (const Entry& entry : entries()) forms.push_back(entry.form);
  return forms;
}

std::optional<Dictionary> RemovedFriends::formOf(const FriendIdentity& identity) {
  const double now = _clock();
  for (const Entry& entry : entries())
    if (now - entry.time < KeptFor && areAddedAlike(identityOf(entry.form), identity)) return entry.form;
  return std::nullopt;
}

RemovedFriends::Changes RemovedFriends::note(const std::vector<Dictionary>& left, const std::vector<Dictionary>& came) {
  if (left.empty() && (came.empty() || entries().empty())) return {};
  std::vector<Entry> all = entries();
  std::map<std::string, Change> changes;
  const auto takeOut = [&](const std::function<bool(const Entry&)>& goes) {
    for (const Entry& entry : all)
      if (goes(entry)) changes.try_emplace(entry.id, Change{entry.id, valueOf(entry), {}}).first->second.after = {};
    std::erase_if(all, goes);
  };
  for (const Dictionary& form : came)
    takeOut(
        [identity = identityOf(form)](const Entry& entry) { return areAddedAlike(identityOf(entry.form), identity); });
  for (const Dictionary& form : left) {
    Entry entry;
    entry.id = idOf(identityOf(form));
    takeOut([&](const Entry& other) { return other.id == entry.id; });
    if (entry.id.empty() || !hasOwnEntries(form)) continue;
    entry.time = _clock();
    entry.form = form;
    entry.isChanged = true;
    const Value value = valueOf(entry);
    if (!fits(value)) continue;
    changes.try_emplace(entry.id, Change{entry.id, {}, {}}).first->second.after = value;
    all.push_back(std::move(entry));
  }
  if (changes.empty()) return {};
  tidy(all);
  write(std::move(all));
  Changes made;
  for (auto& [id, change] : changes) made.push_back(std::move(change));
  return made;
}

// A clock that was ahead leaves times to come: these would be kept for ever.
void RemovedFriends::tidy(std::vector<Entry>& entries) const {
  const double now = _clock();
  std::erase_if(entries, [now](const Entry& entry) {
    const double age = now - entry.time;
    return age >= KeptFor && (age < Implausible || (entry.doubt != 0 && now - entry.doubt >= TimeToBeSetRight));
  });
  for (Entry& entry : entries) {
    const double doubt = now - entry.time < Implausible ? 0 : entry.doubt != 0 ? std::min(entry.doubt, now) : now;
    const double time = std::min(entry.time, now);
    entry.isChanged = entry.isChanged || doubt != entry.doubt || time != entry.time;
    entry.doubt = doubt;
    entry.time = time;
  }
}

// The elements that stay are neither made nor copied.
void RemovedFriends::write(std::vector<Entry> entries) {
  LongArrayElements elements;
  for (const Entry& entry : entries)
    elements.push_back(entry.isChanged ? ArrayChunk::Element(valueOf(entry)) : elementAt(_read, entry.index));
  _manager->editor().setAttached(Key, arrayOf(std::move(elements)));
}

void RemovedFriends::takeBack(const Changes& changes) {
  if (changes.empty()) return;
  std::vector<Entry> all = entries();
  for (const Change& change : changes) {
    const auto now = std::ranges::find(all, change.id, &Entry::id);
    const auto value = now == all.end() ? std::nullopt : std::optional(valueOf(*now));
    if (value != change.after) continue;
    if (now != all.end()) all.erase(now);
    auto before = change.before ? entryOf(*change.before) : std::nullopt;
    if (!before) continue;
    before->isChanged = true;
    all.push_back(*std::move(before));
  }
  write(std::move(all));
}

// What cannot be read may tell of anybody.
void RemovedFriends::forget(const std::function<bool(const Dictionary& form)>& isTheirs) {
  std::vector<Entry> all = entries();
  std::erase_if(all, [&](const Entry& entry) { return isTheirs(entry.form); });
  if (all.size() < _read.size()) write(std::move(all));
}

}  // namespace pellor
