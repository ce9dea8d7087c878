#include "tests/e2e/RaceModel.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace pellor {
namespace {

using Kind = RaceFact::Kind;

bool concernsPage(const RaceFact& fact) {
  return fact.kind == Kind::title || fact.kind == Kind::present || fact.kind == Kind::at;
}

bool putsSomebody(const RaceFact& fact) { return fact.kind == Kind::present || fact.kind == Kind::at; }

bool concernOneField(const RaceFact& one, const RaceFact& other) {
  if (one.who.empty() || one.who != other.who) return false;
  // A removal concerns all fields, and so does an addition.
  const auto isWhole = [](const RaceFact& fact) { return fact.kind == Kind::absent || fact.kind == Kind::present; };
  return isWhole(one) || isWhole(other) || (one.kind == other.kind && one.field == other.field);
}

bool concernOnePage(const RaceFact& one, const RaceFact& other) {
  if (one.place.page != other.place.page) return false;
  if (one.kind == Kind::title) return other.kind == Kind::title || other.kind == Kind::gone;
  return (one.kind == Kind::gone && concernsPage(other)) || (other.kind == Kind::gone && concernsPage(one));
}

}  // namespace

std::string textOf(const RaceFact& fact) {
  const std::string page = "page " + std::to_string(fact.place.page + 1);
  switch (fact.kind) {
    case Kind::present:
      return fact.who + " is there";
    case Kind::absent:
      return fact.who + " is gone";
    case Kind::at:
      return fact.who + " stands at " + textOf(fact.place);
    case Kind::title:
      return page + " is called \"" + fact.value.value_or("") + "\"";
    case Kind::gone:
      return page + " is gone";
    case Kind::field:
      return fact.field + " of " + fact.who + " is " + fact.value.value_or("(none)");
    case Kind::contact:
      return fact.who + " is as the contact is";
  }
  return {};
}

bool conflict(const RaceFact& one, const RaceFact& other) {
  return concernOneField(one, other) || concernOnePage(one, other) || conflictInPlaceAlone(one, other);
}

bool conflictInPlaceAlone(const RaceFact& one, const RaceFact& other) {
  return putsSomebody(one) && putsSomebody(other) && one.who != other.who && one.place == other.place;
}

RaceModel::RaceModel(const RaceList& list, std::size_t maxPages,
                     const std::map<std::string, RaceContact>& changedContacts)
    : _pageSize(list.pageSize), _maxPages(maxPages), _nextIdentity(list.pages.size()) {
  for (const RacePage& page : list.pages) {
    _pages.push_back({_pages.size(), {}});
    for (const auto& slot : page.slots) {
      _pages.back().slots.push_back(slot ? slot->key : "");
      if (!slot) continue;
      _fields[slot->key] = slot->fields;
      if (changedContacts.contains(slot->key)) _changedFriends.push_back(slot->key);
    }
  }
}

std::optional<RaceFacts> RaceModel::apply(const RaceEdit& edit) {
  switch (edit.kind) {
    case RaceEditKind::add:
      return add(edit);
    case RaceEditKind::remove:
      return remove(edit);
    case RaceEditKind::move:
    case RaceEditKind::swap:
      return move(edit);
    case RaceEditKind::title:
      return title(edit);
    case RaceEditKind::purge:
      return purge();
    case RaceEditKind::replyAs:
      return setField(edit.who, ReplyField, edit.text);
    case RaceEditKind::meta:
      return edit.text ? setField(edit.who, metadataField(edit.key), edit.text) : clearMetadata(edit.who);
    case RaceEditKind::refresh:
      return refresh();
  }
  return std::nullopt;
}

bool RaceModel::isEmpty(const Page& page) const {
  return std::ranges::all_of(page.slots, [](const std::string& who) { return who.empty(); });
}

std::optional<RacePlace> RaceModel::find(const std::string& who) const {
  for (std::size_t page = 0; page < _pages.size(); ++page) {
    const auto found = std::ranges::find(_pages[page].slots, who);
    if (found != _pages[page].slots.end()) {
      return RacePlace{page, static_cast<std::size_t>(found - _pages[page].slots.begin())};
    }
  }
  return std::nullopt;
}

std::optional<RacePlace> RaceModel::firstFree() const { return find(""); }

void RaceModel::appendPage() { _pages.push_back({_nextIdentity++, std::vector<std::string>(_pageSize)}); }

// An empty page is kept behind the last one that is used.
void RaceModel::keepRoom() {
  if (_pages.size() < _maxPages && !isEmpty(_pages.back())) appendPage();
}

RaceFact RaceModel::removePage(std::size_t index) {
  const std::size_t identity = _pages[index].identity;
  _pages.erase(_pages.begin() + static_cast<std::ptrdiff_t>(index));
  return {Kind::gone, {}, {identity, 0}, {}, {}};
}

std::optional<RaceFacts> RaceModel::add(const RaceEdit& edit) {
  const auto place = firstFree();
  if (!place || find(edit.who)) return std::nullopt;
  _pages[place->page].slots[place->slot] = edit.who;
  const RaceFact fact{Kind::present, edit.who, identified(*place), {}, {}};
  keepRoom();
  return RaceFacts{fact};
}

std::optional<RaceFacts> RaceModel::remove(const RaceEdit& edit) {
  const auto place = find(edit.who);
  if (!place) return std::nullopt;
  _pages[place->page].slots[place->slot].clear();
  RaceFacts facts = {{Kind::absent, edit.who, {}, {}, {}}};
  if (isEmpty(_pages[place->page])) facts.push_back(removePage(place->page));
  return facts;
}

// A taken slot swaps.
std::optional<RaceFacts> RaceModel::move(const RaceEdit& edit) {
  const auto from = find(edit.who);
  if (!from || edit.place.page >= _pages.size() || edit.place.slot >= _pageSize) return std::nullopt;
  std::string& target = _pages[edit.place.page].slots[edit.place.slot];
  RaceFacts facts = {{Kind::at, edit.who, identified(edit.place), {}, {}}};
  if (!target.empty() && target != edit.who) facts.push_back({Kind::at, target, identified(*from), {}, {}});
  std::swap(_pages[from->page].slots[from->slot], target);
  keepRoom();
  return facts;
}

std::optional<RaceFacts> RaceModel::title(const RaceEdit& edit) const {
  if (edit.place.page >= _pages.size()) return std::nullopt;
  return RaceFacts{{Kind::title, {}, {_pages[edit.place.page].identity, 0}, {}, edit.text}};
}

RaceFacts RaceModel::purge() {
  RaceFacts facts;
  for (std::size_t index = _pages.size() - 1; index > 0; --index) {
    if (isEmpty(_pages[index - 1])) facts.push_back(removePage(index - 1));
  }
  return facts;
}

std::optional<RaceFacts> RaceModel::setField(const std::string& who, const std::string& field,
                                             const std::optional<std::string>& value) {
  if (!find(who)) return std::nullopt;
  if (value) {
    _fields[who][field] = *value;
  } else {
    _fields[who].erase(field);
  }
  return RaceFacts{{Kind::field, who, {}, field, value}};
}

std::optional<RaceFacts> RaceModel::clearMetadata(const std::string& who) {
  if (!find(who)) return std::nullopt;
  RaceFacts facts;
  auto& fields = _fields[who];
  for (auto field = fields.begin(); field != fields.end();) {
    if (field->first == ReplyField) {
      ++field;
      continue;
    }
    facts.push_back({Kind::field, who, {}, field->first, {}});
    field = fields.erase(field);
  }
  return facts;
}

RaceFacts RaceModel::refresh() const {
  RaceFacts facts;
  for (const std::string& who : _changedFriends) {
    if (find(who)) facts.push_back({Kind::contact, who, {}, {}, {}});
  }
  return facts;
}

}  // namespace pellor
