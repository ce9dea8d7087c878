#include "tests/pellor/simulation/EditJudge.h"

#include <algorithm>
#include <vector>

namespace pellor {
namespace {

// What an edit asked for, or what there was before.
struct Claim {
  std::optional<std::size_t> edit;
  std::optional<std::string> value;
};
using Claims = std::vector<Claim>;

const std::string there = "there";
const std::string gone = "gone";

std::string shown(const std::optional<std::string>& value) { return value ? "\"" + *value + "\"" : "nothing"; }

std::optional<std::string> entry(const PlainFriend& known, const std::string& key) {
  const auto found = known.metadata.find(key);
  return found == known.metadata.end() ? std::nullopt : std::optional(found->second);
}

class EditJudge {
 public:
  explicit EditJudge(const Round& round) : _round(round), _touched(round.touched()) {}

  std::optional<std::string> verdict() {
    if (_round.wasStoreReplaced || _round.hasPagesOfSeveralSizes) return verdictOnPresence();
    for (const FriendName& name : names()) judgePresence(name);
    for (const auto& [name, known] : _round.after.friends) {
      if (_round.mayHaveBeenTwo(name)) continue;
      judgeFields(name, known);
      judgePlace(name);
    }
    matchPages();
    for (std::size_t page = 0; page < _round.after.pages.size() && _round.arePagesKnown(); ++page) judgeTitle(page);
    return _verdict;
  }

 private:
  // Nobody is lost whom nobody took out, be it one of two.
  std::optional<std::string> verdictOnPresence() {
    if (_round.hasTakenOneOfTwo) return std::nullopt;
    std::set<FriendName> expected;
    for (const auto& [name, known] : _round.before.friends) expected.insert(name);
    for (const Edit& edit : _round.edits) {
      if (edit.kind != Edit::Kind::add || !edit.acknowledged) continue;
      for (const auto& [name, place] : edit.placed) expected.insert(name);
    }
    for (const Edit& edit : _round.edits) {
      for (const FriendName& name : edit.removed) expected.erase(name);
    }
    for (const FriendName& name : expected) {
      if (!_round.after.contains(name)) report(name + " is gone, and nobody took it out");
    }
    return _verdict;
  }

  void report(const std::string& text) {
    if (!_verdict) _verdict = text;
  }

  bool isAcknowledged(const Claim& claim) const { return claim.edit && _round.edits[*claim.edit].acknowledged; }

  bool isBuiltOn(const Claim& earlier, const Claims& claims) const {
    return std::ranges::any_of(claims, [&](const Claim& later) {
      return isAcknowledged(later) && (!earlier.edit || _round.buildsOn(*later.edit, *earlier.edit));
    });
  }

  void judge(const std::string& thing, const Claims& claims, const std::optional<std::string>& value) {
    const bool isExplained = std::ranges::any_of(
        claims, [&](const Claim& claim) { return claim.value == value && !isBuiltOn(claim, claims); });
    if (!isExplained) report(thing + " is " + shown(value) + ", which nothing explains");
  }

  std::set<FriendName> names() const {
    std::set<FriendName> names = _touched;
    for (const auto* list : {&_round.before, &_round.after}) {
      for (const auto& [name, known] : list->friends) names.insert(name);
    }
    return names;
  }

  void judgePresence(const FriendName& name) {
    Claims claims{{std::nullopt, _round.before.contains(name) ? there : gone}};
    for (std::size_t index = 0; index < _round.edits.size(); ++index) {
      const Edit& edit = _round.edits[index];
      if (edit.kind == Edit::Kind::add && edit.placed.contains(name)) claims.push_back({index, there});
      if (edit.removed.contains(name)) claims.push_back({index, gone});
    }
    const bool isThere = _round.after.contains(name);
    // Whoever takes one of two out may not know that another takes out the other.
    const bool mayBothBeGone = !isThere && _round.hasTakenOneOfTwo && _round.mayHaveBeenTwo(name);
    const bool mayBeBack = isThere && _round.relinked.contains(name);
    if (!mayBothBeGone && !mayBeBack) judge(name, claims, isThere ? there : gone);
    if (_round.after.doubled.contains(name) && !_round.mayHaveBeenTwo(name)) report(name + " is there twice");
  }

  void judgeFields(const FriendName& name, const PlainFriend& known) {
    judge("the reply preference of " + name, claimsOf(name, [](const PlainFriend& told) { return told.replyAs; }),
          known.replyAs);
    judge("what a later version keeps of " + name,
          claimsOf(
              name, [](const PlainFriend& told) { return told.later; }, LaterKey),
          known.later);
    std::set<std::string> keys;
    const auto take = [&](const PlainFriend& told) {
      for (const auto& [key, value] : told.metadata) keys.insert(key);
    };
    take(known);
    if (const auto before = _round.before.friends.find(name); before != _round.before.friends.end()) {
      take(before->second);
    }
    for (const Edit& edit : _round.edits) take(edit.told);
    for (const std::string& key : keys) {
      judge("the metadata of " + name + " under " + key,
            claimsOf(
                name, [&](const PlainFriend& told) { return entry(told, key); }, key),
            entry(known, key));
    }
  }

  // Of one field, be it the metadata under `key`.
  template <class FieldOf>
  Claims claimsOf(const FriendName& name, const FieldOf& fieldOf, const std::optional<std::string>& key = {}) const {
    Claims claims;
    const auto before = _round.before.friends.find(name);
    if (before != _round.before.friends.end()) claims.push_back({std::nullopt, fieldOf(before->second)});
    for (std::size_t index = 0; index < _round.edits.size(); ++index) {
      const Edit& edit = _round.edits[index];
      const bool adds = edit.kind == Edit::Kind::add && edit.placed.contains(name);
      const bool hasKey = edit.who == name && key && edit.told.metadata.contains(*key);
      if (adds) claims.push_back({index, fieldOf(edit.told)});
      if (edit.kind == Edit::Kind::replyAs && edit.who == name && !key) claims.push_back({index, edit.text});
      if (edit.kind == Edit::Kind::metadata && hasKey) claims.push_back({index, edit.told.metadata.at(*key)});
      if (edit.kind == Edit::Kind::clearMetadata && hasKey) claims.push_back({index, std::nullopt});
    }
    return claims;
  }

  // An edit that others contested, and one onto a page that nobody knows any more, may have come out in another slot.
  void judgePlace(const FriendName& name) {
    Claims claims;
    for (std::size_t index = 0; index < _round.edits.size(); ++index) {
      if (_round.edits[index].placed.contains(name)) claims.push_back({index, std::nullopt});
    }
    const PlainPlace place = *_round.after.placeOf(name);
    const bool isPlaced = std::ranges::any_of(claims, [&](const Claim& claim) { return isAcknowledged(claim); });
    if (!isPlaced) return;
    const bool isExplained = std::ranges::any_of(
        claims, [&](const Claim& claim) { return !isBuiltOn(claim, claims) && mayStandAt(name, place, *claim.edit); });
    if (!isExplained) {
      report(name + " stands at " + std::to_string(place.page) + "/" + std::to_string(place.position) +
             ", where nobody put it");
    }
  }

  bool mayStandAt(const FriendName& name, const PlainPlace& place, std::size_t edit) const {
    const SeenPlace& asked = _round.edits[edit].placed.at(name);
    const auto page = _round.pageNow(asked.page);
    if (!page) return true;
    const PlainPlace askedNow{*page, asked.position};
    return place == askedNow || _touched.contains(_round.after.at(askedNow)) || _round.isContested(edit, name);
  }

  void matchPages() {
    _pageBefore.resize(_round.after.pages.size());
    for (const auto& [name, known] : _round.before.friends) {
      const auto now = _round.after.placeOf(name);
      if (_touched.contains(name) || !now) continue;
      const PlainPlace before = *_round.before.placeOf(name);
      auto& page = _pageBefore[now->page];
      if (page.value_or(before.page) != before.page || now->position != before.position) {
        report(name + ", whom no edit touched, does not stand where it stood");
      }
      page = before.page;
    }
    std::optional<std::size_t> last;
    for (const auto& page : _pageBefore) {
      if (page && last && *page <= *last) report("pages have changed their order, or one has become two");
      if (page) last = page;
    }
  }

  void judgeTitle(std::size_t page) {
    if (!_pageBefore[page]) return;
    const std::string& title = _round.after.pages[page].title;
    Claims claims{{std::nullopt, _round.before.pages[*_pageBefore[page]].title}};
    for (std::size_t index = 0; index < _round.edits.size(); ++index) {
      const Edit& edit = _round.edits[index];
      if (edit.kind != Edit::Kind::title) continue;
      const auto named = _round.pageNow(edit.page);
      if (!named && edit.text == title) return;
      if (named == page) claims.push_back({index, edit.text});
    }
    judge("the title of page " + std::to_string(page), claims, title);
  }

  const Round& _round;
  const std::set<FriendName> _touched;
  std::vector<std::optional<std::size_t>> _pageBefore;  // of pages that are known by a friend
  std::optional<std::string> _verdict;
};

}  // namespace

std::optional<std::string> unexplainedThing(const Round& round) { return EditJudge(round).verdict(); }

}  // namespace pellor
