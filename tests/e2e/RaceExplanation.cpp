#include "tests/e2e/RaceExplanation.h"

#include <algorithm>

namespace pellor {
namespace {

using Kind = RaceFact::Kind;

std::optional<std::string> fieldOf(const RaceFriend& person, const std::string& field) {
  const auto found = person.fields.find(field);
  return found == person.fields.end() ? std::nullopt : std::optional(found->second);
}

std::set<std::string> fieldNames(const RaceFriend& one, const RaceFriend& other) {
  std::set<std::string> names;
  for (const RaceFriend* each : {&one, &other}) {
    for (const auto& [name, value] : each->fields) names.insert(name);
  }
  return names;
}

bool isEmpty(const RacePage& page) {
  return std::ranges::none_of(page.slots, [](const auto& slot) { return slot.has_value(); });
}

bool isUnused(const RacePage& page) { return isEmpty(page) && page.title.empty(); }

class Explanation {
 public:
  Explanation(const RaceRecord& race, const RaceCourse& course) : _race(race), _after(*race.after), _course(course) {
    identifyPages();
    judgeEdits();
    judgePages();
    judgeFriends();
  }

  const RaceVerdict& verdict() const { return _verdict; }

 private:
  struct Judged {
    std::size_t attempt;
    const RaceFact* fact;
    bool isSettled;
  };

  // Pages keep their order; those that were made since come behind.
  void identifyPages() {
    std::size_t identity = 0;
    for (std::size_t index = 0; index < _after.pages.size(); ++index, ++identity) {
      while (_course.gonePages.contains(identity)) ++identity;
      _indexes[identity] = index;
      _identities.push_back(identity);
    }
  }

  void judgeEdits() {
    for (std::size_t attempt = 0; attempt < _course.facts.size(); ++attempt) {
      if (!_course.facts[attempt]) continue;
      for (const RaceFact& fact : *_course.facts[attempt]) _judged.push_back({attempt, &fact, shows(fact)});
    }
    while (settleOnce()) {
    }
    std::set<std::size_t> failed;
    for (const Judged& each : _judged) {
      if (each.isSettled || !failed.insert(each.attempt).second) continue;
      const RaceAttempt& attempt = _race.attempts[each.attempt];
      const std::string reason = textOf(attempt.edit) + " (" + textOf(*each.fact) + ")";
      if (attempt.outcome == RaceOutcome::acknowledged) {
        _verdict.lose(reason);
      } else {
        _verdict.tear("half of " + reason);
      }
    }
  }

  // Whether one more fact that does not show is explained by one of another attempt that shows, or is explained itself.
  bool settleOnce() {
    for (Judged& each : _judged) {
      if (each.isSettled) continue;
      each.isSettled =
          std::ranges::any_of(_judged, [&](const Judged& other) { return other.isSettled && explains(other, each); });
      if (each.isSettled) return true;
    }
    return false;
  }

  bool explains(const Judged& one, const Judged& other) const {
    if (one.attempt == other.attempt) return false;
    // Whatever place was wanted first, somebody who was placed has it, or had it and left: places are given to one
    // after the other.
    const bool isPlace = other.fact->kind == Kind::at && find(other.fact->who);
    if (isPlace && isHeldByAnEdited(other.fact->place, other.attempt)) return true;
    if (isPlace && wasWantedByOneWhoLeft(other.fact->place, other.attempt)) return true;
    return conflict(*one.fact, *other.fact) && !conflictInPlaceAlone(*one.fact, *other.fact);
  }

  bool isHeldByAnEdited(const RacePlace& place, std::size_t exceptAttempt) const {
    const auto index = _indexes.find(place.page);
    const RaceFriend* holder = index == _indexes.end() ? nullptr : friendAt(_after, {index->second, place.slot});
    return holder && std::ranges::any_of(_judged, [&](const Judged& each) {
             const bool places = each.fact->kind == Kind::at || each.fact->kind == Kind::present;
             return places && each.attempt != exceptAttempt && each.fact->who == holder->key;
           });
  }

  bool wasWantedByOneWhoLeft(const RacePlace& place, std::size_t exceptAttempt) const {
    return std::ranges::any_of(_judged, [&](const Judged& each) {
      const bool wantsIt = each.fact->kind == Kind::at && each.fact->place == place;
      return wantsIt && each.attempt != exceptAttempt && !find(each.fact->who);
    });
  }

  bool shows(const RaceFact& fact) const {
    const RaceFriend* found = fact.who.empty() ? nullptr : find(fact.who);
    const auto index = _indexes.find(fact.place.page);
    switch (fact.kind) {
      case Kind::present:
        return found != nullptr;
      case Kind::absent:
        return found == nullptr;
      case Kind::at:
        return placeOf(fact.who) == fact.place;
      case Kind::title:
        if (index == _indexes.end()) return isBehindTheEnd(fact.place.page);
        return _after.pages[index->second].title == fact.value.value_or("");
      case Kind::gone:
        return index == _indexes.end() || mayHaveStayed(fact.place.page, index->second);
      case Kind::field:
        return found && fieldOf(*found, fact.field) == fact.value;
      case Kind::contact:
        return found && found->contact == _race.changedContacts.at(fact.who);
    }
    return false;
  }

  // Of the pages behind the last friend nobody can tell which one went: an empty one stays where somebody was put on
  // one behind it.
  bool mayHaveStayed(std::size_t identity, std::size_t index) const {
    const auto isOnEmptyPageBehind = [&](const RaceFact& fact) {
      const std::size_t page = fact.place.page;
      const bool wasEmpty = page >= _race.before.pages.size() || isEmpty(_race.before.pages[page]);
      return fact.kind == Kind::at && page > identity && wasEmpty;
    };
    return isEmpty(_after.pages[index]) && std::ranges::any_of(_course.facts, [&](const RaceFacts* facts) {
             return facts && std::ranges::any_of(*facts, isOnEmptyPageBehind);
           });
  }

  const RaceFriend* find(const std::string& who) const {
    const auto places = placesOf(_after, who);
    return places.empty() ? nullptr : friendAt(_after, places.front());
  }

  // By identities of pages.
  std::optional<RacePlace> placeOf(const std::string& who) const {
    const auto places = placesOf(_after, who);
    if (places.empty()) return std::nullopt;
    return RacePlace{_identities[places.front().page], places.front().slot};
  }

  bool isConcerned(const std::string& who, Kind kind, const std::string& field = {}) const {
    return std::ranges::any_of(_judged, [&](const Judged& each) {
      return each.fact->who == who && each.fact->kind == kind && each.fact->field == field;
    });
  }

  // A list that ends with an empty page shows no other one behind that: empty pages at its end come and go.
  bool isBehindTheEnd(std::size_t identity) const {
    if (_identities.empty() || identity < _identities.back()) return false;
    return isEmpty(_after.pages.back());
  }

  void judgePages() {
    for (std::size_t identity = 0; identity < _race.before.pages.size(); ++identity) {
      const bool isThere = _indexes.contains(identity) || _course.gonePages.contains(identity);
      if (!isThere && !isBehindTheEnd(identity)) _verdict.tear("page " + std::to_string(identity + 1) + " is missing");
    }
    for (const auto& [identity, index] : _indexes) judgeTitle(identity, _after.pages[index].title);
  }

  void judgeTitle(std::size_t identity, const std::string& title) {
    const bool isNew = identity >= _race.before.pages.size();
    const bool isTitled = std::ranges::any_of(_judged, [&](const Judged& each) {
      return each.fact->kind == Kind::title && each.fact->place.page == identity;
    });
    if (isTitled || title == (isNew ? "" : _race.before.pages[identity].title)) return;
    const bool isBlank = isNew || isUnused(_race.before.pages[identity]);
    if (!isBlank || !mayHaveComeBack(title))
      _verdict.tear("page " + std::to_string(identity + 1) + " is called \"" + title + "\"");
  }

  // When all friends of a page are moved to another one, nobody can tell which of the two was given up: a process that
  // puts somebody there as well may bring the other one back beside it, with its title.
  bool mayHaveComeBack(const std::string& title) const {
    const bool wasOneLeft = std::ranges::any_of(_course.gonePages, [&](std::size_t page) {
      return page < _race.before.pages.size() && !isEmpty(_race.before.pages[page]);
    });
    std::set<std::size_t> attempts;
    for (const Judged& each : _judged) {
      const std::size_t page = each.fact->place.page;
      const bool isTitled = page < _race.before.pages.size() && _race.before.pages[page].title == title;
      if (each.fact->kind == Kind::at && isTitled) attempts.insert(each.attempt);
    }
    return wasOneLeft && attempts.size() > 1;
  }

  void judgeFriends() {
    std::set<std::string> known;
    for (std::size_t page = 0; page < _race.before.pages.size(); ++page) {
      for (std::size_t slot = 0; slot < _race.before.pages[page].slots.size(); ++slot) {
        const RaceFriend* before = friendAt(_race.before, {page, slot});
        if (!before) continue;
        known.insert(before->key);
        judgeQuietFriend(*before, {page, slot});
      }
    }
    for (const Judged& each : _judged) {
      if (each.fact->kind != Kind::present || !known.insert(each.fact->who).second) continue;
      const auto expected = _race.newcomers.find(each.fact->who);
      if (expected != _race.newcomers.end()) judgeNewcomer(expected->first, expected->second);
    }
    for (const RacePage& page : _after.pages) {
      for (const auto& slot : page.slots) {
        if (slot && known.insert(slot->key).second) _verdict.tear("a stranger: " + slot->key);
      }
    }
  }

  // What no edit concerns is as it was.
  void judgeQuietFriend(const RaceFriend& before, const RacePlace& place) {
    const std::string& who = before.key;
    const RaceFriend* after = find(who);
    if (!after) {
      if (!isConcerned(who, Kind::absent)) _verdict.lose(who + " is missing");
      return;
    }
    if (!isConcerned(who, Kind::at) && placeOf(who) != place) _verdict.tear(who + " stands elsewhere");
    for (const std::string& field : fieldNames(before, *after)) {
      if (isConcerned(who, Kind::field, field) || fieldOf(before, field) == fieldOf(*after, field)) continue;
      _verdict.tear(field + " of " + who + " is " + fieldOf(*after, field).value_or("(none)"));
    }
    // Every process follows the contacts when it likes.
    const auto changed = _race.changedContacts.find(who);
    const bool isAsChanged = changed != _race.changedContacts.end() && after->contact == changed->second;
    if (!isAsChanged && after->contact != before.contact)
      _verdict.tear(who + " has another name or other destinations");
  }

  void judgeNewcomer(const std::string& who, const RaceContact& expected) {
    const RaceFriend* after = find(who);
    if (after && after->contact != expected) _verdict.tear(who + " was added with another name or other destinations");
    if (after && !after->fields.empty()) _verdict.tear(who + " was added with fields that nobody set");
  }

  const RaceRecord& _race;
  const RaceList& _after;
  const RaceCourse& _course;
  std::map<std::size_t, std::size_t> _indexes;  // of pages in the list after, by their identities
  std::vector<std::size_t> _identities;         // of the pages in the list after
  std::vector<Judged> _judged;
  RaceVerdict _verdict;
};

}  // namespace

RaceVerdict explain(const RaceRecord& race, const RaceCourse& course) { return Explanation(race, course).verdict(); }

}  // namespace pellor
