#include "tests/e2e/RaceJudge.h"

#include <algorithm>
#include <map>
#include <set>

#include "tests/e2e/RaceExplanation.h"
#include "tests/e2e/RaceModel.h"

namespace pellor {
namespace {

using Kind = RaceFact::Kind;

/// What an edit may have meant, by what its process had read: which of the other edits were in it.
struct Meaning {
  std::set<std::size_t> after;
  RaceFacts facts;
};

class Judge {
 public:
  explicit Judge(const RaceRecord& race) : _race(race) {
    for (std::size_t attempt = 0; attempt < race.attempts.size(); ++attempt) {
      _meanings.emplace_back();
      const RaceModel before(race.before, race.maxPages, race.changedContacts);
      if (!collectMeanings(attempt, before, {})) _mayFail.insert(attempt);
    }
    if (!isSound()) return;
    findGonePages();
    std::vector<const Meaning*> chosen;
    tryMeanings(chosen);
    addBest();
  }

  RaceVerdict verdict() const { return _verdict; }

 private:
  // Follows every order of the other edits, and returns whether the edit never fails.
  bool collectMeanings(std::size_t attempt, const RaceModel& state, const std::set<std::size_t>& after) {
    RaceModel own = state;
    const auto facts = own.apply(_race.attempts[attempt].edit);
    if (facts) addMeaning(attempt, {after, *facts});
    bool neverFails = facts.has_value();
    for (std::size_t other = 0; other < _race.attempts.size(); ++other) {
      if (other == attempt || after.contains(other)) continue;
      RaceModel next = state;
      if (!next.apply(_race.attempts[other].edit)) continue;
      std::set<std::size_t> more = after;
      more.insert(other);
      neverFails = collectMeanings(attempt, next, more) && neverFails;
    }
    return neverFails;
  }

  void addMeaning(std::size_t attempt, Meaning meaning) {
    auto& known = _meanings[attempt];
    // Of two that bring about the same, the one that needs fewer others says more.
    for (Meaning& each : known) {
      if (each.facts != meaning.facts) continue;
      if (meaning.after.size() < each.after.size()) each.after = meaning.after;
      return;
    }
    known.push_back(std::move(meaning));
  }

  bool isSound() {
    judgeRefusals();
    if (!_race.after) {
      _verdict.tear("the list cannot be read");
      return false;
    }
    std::map<std::string, int> counts;
    for (const RacePage& page : _race.after->pages) {
      if (page.slots.size() != _race.before.pageSize) _verdict.tear("a page has another number of slots");
      for (const auto& slot : page.slots) {
        if (slot && ++counts[slot->key] == 2) _verdict.note(_verdict.doubled, "doubled: " + slot->key);
      }
    }
    if (_race.after->pages.size() > _race.maxPages) _verdict.tear("there are too many pages");
    return true;
  }

  void judgeRefusals() {
    for (std::size_t attempt = 0; attempt < _race.attempts.size(); ++attempt) {
      if (_race.attempts[attempt].outcome != RaceOutcome::refused || isInTheWay(attempt)) continue;
      _verdict.note(_verdict.refused, "refused: " + textOf(_race.attempts[attempt].edit));
    }
  }

  // Whether another edit makes this one fail, or conflicts with it.
  bool isInTheWay(std::size_t attempt) const {
    if (_mayFail.contains(attempt)) return true;
    for (std::size_t other = 0; other < _race.attempts.size(); ++other) {
      if (other != attempt && mayConflict(attempt, other)) return true;
    }
    return false;
  }

  bool mayConflict(std::size_t attempt, std::size_t other) const {
    if (_meanings[other].empty()) return false;
    const auto& ours = _meanings[attempt].front().facts;
    const auto& theirs = _meanings[other].front().facts;
    return std::ranges::any_of(ours, [&](const RaceFact& one) {
      // Two additions want the first free place each, and no place at all.
      return std::ranges::any_of(theirs, [&](const RaceFact& two) {
        const bool areAdditions = one.kind == Kind::present && two.kind == Kind::present;
        return conflict(one, two) && !(areAdditions && conflictInPlaceAlone(one, two));
      });
    });
  }

  // Pages that may be gone: those that an edit removes, and those whose friends were all removed or moved.
  void findGonePages() {
    std::set<std::string> leaving;
    std::set<std::size_t> removed;
    for (const auto& meanings : _meanings) {
      for (const Meaning& meaning : meanings) {
        for (const RaceFact& fact : meaning.facts) {
          if (fact.kind == Kind::gone) removed.insert(fact.place.page);
          if (fact.kind == Kind::absent || fact.kind == Kind::at) leaving.insert(fact.who);
        }
      }
    }
    for (std::size_t page = 0; page < _race.before.pages.size(); ++page) {
      if (removed.contains(page) || haveAllLeft(_race.before.pages[page], leaving)) _mayBeGone.push_back(page);
    }
  }

  static bool haveAllLeft(const RacePage& page, const std::set<std::string>& leaving) {
    const auto isThere = [](const auto& slot) { return slot.has_value(); };
    return std::ranges::any_of(page.slots, isThere) &&
           std::ranges::all_of(page.slots, [&](const auto& slot) { return !slot || leaving.contains(slot->key); });
  }

  void tryMeanings(std::vector<const Meaning*>& chosen) {
    const std::size_t attempt = chosen.size();
    if (attempt == _race.attempts.size()) return tryGonePages(chosen, 0, {});
    if (_race.attempts[attempt].outcome != RaceOutcome::acknowledged || _meanings[attempt].empty()) {
      chosen.push_back(nullptr);
      tryMeanings(chosen);
      chosen.pop_back();
    }
    for (const Meaning& meaning : _meanings[attempt]) {
      if (!fits(meaning, attempt, chosen)) continue;
      chosen.push_back(&meaning);
      tryMeanings(chosen);
      chosen.pop_back();
    }
  }

  // Nobody read what was written by somebody who had read what it wrote.
  static bool fits(const Meaning& meaning, std::size_t attempt, const std::vector<const Meaning*>& chosen) {
    return std::ranges::none_of(meaning.after, [&](std::size_t other) {
      if (other >= chosen.size()) return false;
      return !chosen[other] || chosen[other]->after.contains(attempt);
    });
  }

  void tryGonePages(const std::vector<const Meaning*>& chosen, std::size_t next, const std::set<std::size_t>& gone) {
    if (next < _mayBeGone.size()) {
      tryGonePages(chosen, next + 1, gone);
      std::set<std::size_t> more = gone;
      more.insert(_mayBeGone[next]);
      return tryGonePages(chosen, next + 1, more);
    }
    RaceCourse course{{}, gone};
    for (const Meaning* meaning : chosen) course.facts.push_back(meaning ? &meaning->facts : nullptr);
    const RaceVerdict verdict = explain(_race, course);
    if (!_best || verdict.faults() < _best->faults()) _best = verdict;
  }

  void addBest() {
    if (!_best) return _verdict.tear("no order of the edits explains the list");
    _verdict.lost += _best->lost;
    _verdict.torn += _best->torn;
    _verdict.reasons.insert(_verdict.reasons.end(), _best->reasons.begin(), _best->reasons.end());
  }

  const RaceRecord& _race;
  std::vector<std::vector<Meaning>> _meanings;  // by attempt
  std::set<std::size_t> _mayFail;
  std::vector<std::size_t> _mayBeGone;
  std::optional<RaceVerdict> _best;
  RaceVerdict _verdict;
};

}  // namespace

RaceVerdict judge(const RaceRecord& race) { return Judge(race).verdict(); }

}  // namespace pellor
