#include "tests/e2e/RaceEdit.h"

#include <algorithm>
#include <random>

namespace pellor {
namespace {

constexpr std::array<std::string_view, RaceEditKinds.size()> Names = {"add",   "remove",   "move", "swap",   "title",
                                                                      "purge", "reply-as", "meta", "refresh"};

}  // namespace

std::string_view nameOf(RaceEditKind kind) { return Names[static_cast<std::size_t>(kind)]; }

std::vector<std::string> argumentsOf(const RaceEdit& edit) {
  const std::string clear = "--clear";
  switch (edit.kind) {
    case RaceEditKind::add:
    case RaceEditKind::remove:
      return {std::string(nameOf(edit.kind)), edit.who};
    case RaceEditKind::move:
    case RaceEditKind::swap:
      return {"move", edit.who, textOf(edit.place)};
    case RaceEditKind::title:
      return {"title", std::to_string(edit.place.page + 1), edit.text.value_or("")};
    case RaceEditKind::replyAs:
      return {"reply-as", edit.who, edit.text.value_or(clear)};
    case RaceEditKind::meta:
      if (!edit.text) return {"meta", edit.who, clear};
      return {"meta", edit.who, edit.key, *edit.text};
    case RaceEditKind::purge:
    case RaceEditKind::refresh:
      break;
  }
  return {std::string(nameOf(edit.kind))};
}

std::string textOf(const RaceEdit& edit) {
  std::string text;
  for (const std::string& argument : argumentsOf(edit)) {
    text += (text.empty() ? "" : " ") + (argument.empty() ? "\"\"" : argument);
  }
  return text;
}

namespace {

class RaceEditMaker {
 public:
  RaceEditMaker(std::uint64_t seed, const RaceList& list, const std::vector<std::string>& newcomers)
      : _random(seed), _list(list), _newcomers(newcomers) {
    for (const RacePage& page : list.pages) {
      for (const auto& slot : page.slots) {
        if (slot) _friends.push_back(slot->key);
      }
    }
  }

  RaceEdit make(RaceEditKind kind) {
    ++_made;
    RaceEdit edit = random(kind);
    if (!_first) _first = edit;
    return edit;
  }

 private:
  std::size_t below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(_random); }

  const std::string& oneOf(const std::vector<std::string>& choices) { return choices[below(choices.size())]; }

  std::string anybody() {
    const bool isKnown = _first && std::ranges::find(_friends, _first->who) != _friends.end();
    return isKnown && below(2) == 0 ? _first->who : oneOf(_friends);
  }

  std::string newcomer() {
    const bool isKnown = _first && _first->kind == RaceEditKind::add;
    return isKnown && below(4) == 0 ? _first->who : oneOf(_newcomers);
  }

  RacePlace place(bool isTaken, const std::string& mover) {
    std::vector<RacePlace> places;
    for (std::size_t page = 0; page < _list.pages.size(); ++page) {
      for (std::size_t slot = 0; slot < _list.pageSize; ++slot) {
        const RaceFriend* found = friendAt(_list, {page, slot});
        if ((found != nullptr) == isTaken && !(found && found->key == mover)) places.push_back({page, slot});
      }
    }
    const bool isKnown = _first && std::ranges::find(places, _first->place) != places.end();
    return isKnown && below(2) == 0 ? _first->place : places[below(places.size())];
  }

  // Texts of different writers differ; every fifth one is none.
  std::optional<std::string> newText(const std::string& suffix) {
    if (below(5) == 0) return std::nullopt;
    return "new" + std::to_string(_made) + suffix;
  }

  RaceEdit random(RaceEditKind kind) {
    RaceEdit edit{kind, {}, {}, {}, {}};
    switch (kind) {
      case RaceEditKind::add:
        edit.who = newcomer();
        break;
      case RaceEditKind::remove:
        edit.who = anybody();
        break;
      case RaceEditKind::move:
      case RaceEditKind::swap:
        edit.who = anybody();
        edit.place = place(kind == RaceEditKind::swap, edit.who);
        break;
      case RaceEditKind::title: {
        const bool isKnown = _first && below(2) == 0;
        edit.place.page = isKnown ? _first->place.page : below(_list.pages.size());
        edit.text = newText("");
        break;
      }
      case RaceEditKind::replyAs:
        edit.who = anybody();
        edit.text = newText("@example.org");
        break;
      case RaceEditKind::meta:
        edit.who = anybody();
        edit.key = below(2) == 0 ? "colour" : "size";
        edit.text = newText("");
        break;
      case RaceEditKind::purge:
      case RaceEditKind::refresh:
        break;
    }
    return edit;
  }

  std::mt19937_64 _random;
  const RaceList& _list;
  const std::vector<std::string>& _newcomers;
  std::vector<std::string> _friends;
  std::optional<RaceEdit> _first;
  int _made = 0;
};

}  // namespace

std::vector<RaceEdit> randomEdits(std::uint64_t seed, const RaceList& list, const std::vector<std::string>& newcomers,
                                  const std::vector<RaceEditKind>& kinds) {
  RaceEditMaker maker(seed, list, newcomers);
  std::vector<RaceEdit> edits;
  for (const RaceEditKind kind : kinds) edits.push_back(maker.make(kind));
  return edits;
}

}  // namespace pellor
