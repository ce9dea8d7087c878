// Edits, steps and changes as text. Pages and slots count from 1; a friend without a name is called by the address.
#pragma once

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/History.h"
#include "pellor/list/ListChange.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {

using Edits = std::vector<Edit>;

inline std::string shownName(const Friend& person) { return person.name.empty() ? person.destination : person.name; }

inline std::string textOf(Place place) { return std::to_string(place.page + 1) + ":" + std::to_string(place.slot + 1); }

/// Makes edits of a list from text:
///
///   add ADDRESS [PLACE]     remove NAME           reply NAME [TEXT]      insert PAGE [TITLE]   drop PAGE
///   contact NAME [PLACE]    move NAME PLACE       meta NAME KEY [TEXT]   title PAGE [TITLE]    page PAGE PAGE
///                                                 choose NAME ADDRESS    fill PAGE NAME...
///
/// A NAME is what is shown, or the one that the contact had first. An empty slot to be filled is "-"; whoever is not
/// in the list is a friend whom nobody knows.
class EditReader {
 public:
  explicit EditReader(const Snapshot& list) : _list(list) {}

  /// Edits, with semicolons between them.
  Edits edits(const std::string& text) const {
    Edits edits;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ';');) edits.push_back(edit(part));
    return edits;
  }

 private:
  Edit edit(const std::string& text) const {
    std::istringstream stream(text);
    std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
    words.resize(words.size() + 3);
    const std::string &verb = words[0], &object = words[1], &more = words[2], &last = words[3];
    if (verb == "add") return AddFriend{.destination = object, .to = placeOf(more)};
    if (verb == "contact") return AddFriend{.contactGUID = guidOf(object), .to = placeOf(more)};
    if (verb == "insert") return InsertPage{indexOf(object), more};
    if (verb == "title") return RenamePage{pageAt(object), more};
    if (verb == "page") return MovePage{pageAt(object), indexOf(more)};
    if (verb == "drop") return RemovePage{pageAt(object)};
    if (verb == "fill") return FillPage{pageAt(object), idsOf({words.begin() + 2, words.end() - 3})};
    const FriendId id = idOf(object);
    if (verb == "remove") return RemoveFriend{id};
    if (verb == "move") return MoveFriend{id, placeOf(more).value()};
    if (verb == "reply") return SetReplyAs{id, optional(more)};
    if (verb == "choose") return ChooseNumber{id, more};
    if (verb == "meta") return SetMetadata{id, more, last.empty() ? std::nullopt : std::optional(Value(last))};
    ADD_FAILURE() << "no edit: " << text;
    return RemoveFriend{};
  }

  static std::optional<std::string> optional(const std::string& word) {
    return word.empty() ? std::nullopt : std::optional(word);
  }
  static std::uint64_t indexOf(const std::string& number) { return std::stoull(number) - 1; }
  static std::optional<Place> placeOf(const std::string& place) {
    if (place.empty()) return std::nullopt;
    const std::size_t colon = place.find(':');
    return Place{indexOf(place.substr(0, colon)), indexOf(place.substr(colon + 1))};
  }
  PageId pageAt(const std::string& number) const { return _list.page(indexOf(number)).id; }
  FriendId idOf(const std::string& name) const {
    for (const auto& person : _list.friends())
      if (shownName(*person) == name || person->contactGUID == guidOf(name)) return person->id;
    return name == "-" ? FriendId{} : FriendId{999};
  }
  std::vector<FriendId> idsOf(const std::vector<std::string>& names) const {
    std::vector<FriendId> ids;
    for (const std::string& name : names) ids.push_back(idOf(name));
    return ids;
  }

  const Snapshot& _list;
};

/// "foreign Ann: -1": the kind, who, and how many were added, removed, moved, changed, and pages; with "(back)" where
/// it is taken back. Kinds of a person's steps are "own".
inline std::string textOf(const HistoryStep& step) {
  static const std::map<StepKind, std::string> kinds = {
      {StepKind::relinked, "relinked"},         {StepKind::unlinked, "unlinked"},
      {StepKind::deduplicated, "deduplicated"}, {StepKind::cleanedUp, "cleaned up"},
      {StepKind::placedElsewhere, "placed"},    {StepKind::notImported, "not imported"},
      {StepKind::imported, "imported"},         {StepKind::anotherProgram, "foreign"}};
  const auto kind = kinds.find(step.kind);
  std::string text = kind == kinds.end() ? "own" : kind->second;
  for (const std::string& name : step.summary.names) text += " " + name;
  const auto say = [&](const char* sign, std::uint64_t count) {
    if (count > 0) text += std::string(" ") + sign + std::to_string(count);
  };
  say("+", step.summary.added);
  say("-", step.summary.removed);
  say(">", step.summary.moved);
  say("~", step.summary.changed);
  say("pages ", step.summary.pages);
  return text + (step.isTakenBack ? " (back)" : "");
}

/// "other: -Ann 1:1 -page 1 >Bob 2:1 to 1:1 ~Cy 4": what is removed, comes in, moves, and the fields that change.
inline std::string textOf(const ListChange& change) {
  static const std::map<ChangeOrigin, std::string> origins = {
      {ChangeOrigin::thisProgram, ""},   {ChangeOrigin::undo, "undo:"},         {ChangeOrigin::otherProgram, "other:"},
      {ChangeOrigin::device, "device:"}, {ChangeOrigin::contacts, "contacts:"}, {ChangeOrigin::load, "load:"}};
  std::string text = origins.at(change.origin);
  const auto say = [&](const std::string& what) { text += (text.empty() ? "" : " ") + what; };
  const auto name = [](const Snapshot& list, FriendId id) { return shownName(*list.friendWith(id)); };
  const auto page = [](std::uint64_t index) { return "page " + std::to_string(index + 1); };
  for (const auto& each : change.removed) say("-" + name(change.before, each.id) + " " + textOf(each.from));
  for (const auto& each : change.pagesRemoved) say("-" + page(each.index));
  for (const auto& each : change.pagesMoved) say(">" + page(each.from) + " to " + std::to_string(each.to + 1));
  for (const auto& each : change.pagesInserted) say("+" + page(each.index));
  for (const auto& each : change.renamed) say(page(each.index) + " \"" + change.after.page(each.index).title + "\"");
  for (const auto& each : change.moved)
    say(">" + name(change.after, each.id) + " " + textOf(each.from) + " to " + textOf(each.to));
  for (const auto& each : change.added) say("+" + name(change.after, each.id) + " " + textOf(each.to));
  for (const auto& each : change.changed)
    say("~" + name(change.after, each.id) + " " + std::to_string(each.fields.bits));
  return text;
}

}  // namespace pellor
