// Steps that chance makes, taken back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/list/SeededWorld.h"
#include "tests/list/StepWorld.h"

namespace pellor {
namespace {

/// A small list whose steps are made by chance. Each friend carries a tag, which tells the test who it is and is not
/// looked at otherwise.
class RandomSteps : public Chance {
 public:
  /// `hasLookalikes`: several friends may have one contact, or one number and none.
  RandomSteps(std::uint64_t seed, bool hasLookalikes)
      : Chance(seed),
        _hasLookalikes(hasLookalikes),
        _limits{1 + below(4), 1 + below(6), below(2) == 0},
        _world(_limits) {
    _world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
      draft.insertPage(0, "");
      for (std::size_t count = below(10); count > 0; --count) add(draft, forms);
      draft.addEmptyPageIfDue();
    });
  }

  StepWorld& world() { return _world; }

  StepRecord step() {
    return _world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
      for (std::size_t count = 1 + below(4); count > 0; --count) edit(draft, forms);
      draft.addEmptyPageIfDue();
    });
  }

 private:
  void edit(ListDraft& draft, StepWorld::Forms& forms) {
    switch (below(10)) {
      case 0:
      case 1:
        return add(draft, forms);
      case 2:
        return draft.lift(anybody(draft));
      case 3:
      case 4:
        return move(draft);
      case 5:
        return removePage(draft);
      case 6:
        if (draft.canInsertPage()) draft.insertPage(below(draft.pageCount() + 1), title());
        return;
      case 7:
        return draft.movePage(below(draft.pageCount()), below(draft.pageCount()));
      case 8:
        return draft.rename(below(draft.pageCount()), title());
      default:
        return change(draft, forms);
    }
  }

  Place anyPlace(const ListDraft& draft) { return {below(draft.pageCount()), below(_limits.pageSize)}; }
  FriendId anybody(const ListDraft& draft) { return draft.at(anyPlace(draft)); }

  void add(ListDraft& draft, StepWorld::Forms& forms) {
    const auto place = draft.freeSlotNear(anyPlace(draft));
    if (!place) return;
    const FriendId id = _world.newFriend();
    forms[id] = newForm();
    draft.put(id, *place);
  }

  Dictionary newForm() {
    const std::string name = std::to_string(_hasLookalikes ? below(4) : _tags);
    Dictionary form{{"ABRecordID", -1}, {"Monogram", ""}, {"Tag", ++_tags}};
    if (name < "2" || below(8) == 0) form.insert_or_assign("ABRecordGUID", "contact " + name);
    if (below(3) > 0) form.insert_or_assign("Name", "Name " + name);
    if (!_hasLookalikes || below(4) > 0) form.insert_or_assign("AllValues", Array{Value("+" + name)});
    if (below(3) == 0) form.insert_or_assign("of a later version", static_cast<std::int64_t>(below(3)));
    return form;
  }

  void move(ListDraft& draft) {
    const Place from = anyPlace(draft), to = anyPlace(draft);
    const FriendId one = draft.at(from), other = draft.at(to);
    if (one.number == 0 || from == to) return;
    draft.lift(one);
    draft.lift(other);
    draft.put(one, to);
    if (other.number != 0) draft.put(other, from);
  }

  void removePage(ListDraft& draft) {
    if (draft.pageCount() == 1) return;
    const std::size_t index = below(draft.pageCount());
    for (const FriendId id : draft.friendsOn(index)) draft.lift(id);
    draft.removePage(index);
  }

  void change(const ListDraft& draft, StepWorld::Forms& forms) {
    const FriendId id = anybody(draft);
    if (id.number == 0) return;
    const Value value(static_cast<std::int64_t>(below(3)));
    Dictionary& form = forms.at(id);
    switch (below(5)) {
      case 0:
        form.insert_or_assign("ReplyAs", value.description());
        return;
      case 1:
        form.erase("PreferredDestination");
        if (below(2) == 0) form.emplace("PreferredDestination", value.description());
        return;
      case 2:
        form.insert_or_assign("Metadata", Dictionary{{"k" + value.description(), static_cast<std::int64_t>(below(3))}});
        return;
      case 3:
        form.erase("of a later version");
        if (below(2) == 0) form.emplace("of a later version", value);
        return;
      default:
        form.insert_or_assign("Name", "Name " + value.description());
    }
  }

  const bool _hasLookalikes;
  const ListLimits _limits;
  StepWorld _world;
  std::size_t _tags = 0;
};

class TakeBackSeedsTest : public SeededTest {};

// With the ids of the process, as read from the store, and with some of either; and each step that is taken back is one
// that can be taken back. PELLOR_TAKEN_BACK=<count>: how many lists, of up to 100 steps each.
TEST_P(TakeBackSeedsTest, StepsTakenBackInReverseOrderGiveTheListOfTheStart) {
  forEachSeed(countOf("PELLOR_TAKEN_BACK", 400, 60), [&](std::uint64_t seed) {
    RandomSteps random(seed, true);
    std::vector<std::string> texts;
    std::vector<StepRecord> steps;
    for (std::size_t count = 1 + random.below(100); count > 0; --count) {
      texts.push_back(random.world().text());
      steps.push_back(random.step());
      if (seed % 3 == 0 || (seed % 3 == 1 && count % 2 == 0)) steps.back() = StepWorld::asStored(steps.back());
    }
    for (; !steps.empty() && !HasFailure(); steps.pop_back(), texts.pop_back()) {
      const std::string after = random.world().text();
      auto undone = random.world().takeBack(steps.back());
      ASSERT_FALSE(undone.taken.refusal);
      ASSERT_EQ(random.world().text(), texts.back());
      ASSERT_TRUE(undone.taken.kept.empty());
      if (random.below(4) > 0) continue;
      if (seed % 2 == 0) undone.step = StepWorld::asStored(undone.step);
      const auto redone = random.world().takeBack(undone.step);
      ASSERT_EQ(random.world().text(), after) << "taken back and done again";
      random.world().takeBack(redone.step);
      ASSERT_EQ(random.world().text(), texts.back());
    }
  });
}

// Forth and back, several times, over some of the last steps. PELLOR_DONE_AGAIN=<count>: how many lists, of up to 60
// steps each.
TEST_P(TakeBackSeedsTest, StepsTakenBackAndDoneAgainGiveTheListOfBefore) {
  forEachSeed(countOf("PELLOR_DONE_AGAIN", 400, 60), [&](std::uint64_t seed) {
    RandomSteps random(seed, true);
    const auto kept = [&](const StepRecord& step) {
      return seed % 3 == 0 || (seed % 3 == 1 && random.below(2) == 0) ? StepWorld::asStored(step) : step;
    };
    std::vector<std::string> texts{random.world().text()};
    std::vector<StepRecord> steps, undone;
    for (std::size_t count = 1 + random.below(60); count > 0; --count) {
      steps.push_back(kept(random.step()));
      texts.push_back(random.world().text());
    }
    const auto turn = [&](std::vector<StepRecord>& from, std::vector<StepRecord>& to) {
      const auto answer = random.world().takeBack(from.back());
      from.pop_back();
      to.push_back(kept(answer.step));
      ASSERT_FALSE(answer.taken.refusal);
      ASSERT_TRUE(answer.taken.kept.empty());
      ASSERT_EQ(random.world().text(), texts[steps.size()]) << steps.size() << " of " << texts.size() - 1;
    };
    for (int times = 0; times < 3 && !HasFatalFailure(); ++times) {
      for (std::size_t left = random.below(steps.size() + 1); steps.size() > left && !HasFatalFailure();)
        turn(steps, undone);
      while (!undone.empty() && !HasFatalFailure()) turn(undone, steps);
    }
  });
}

/// Who stands where, by tags.
struct TaggedList {
  std::map<std::int64_t, FriendId> ids;
  std::map<std::int64_t, std::pair<PageId, std::uint64_t>> places;
  std::map<std::int64_t, Dictionary> forms;
  std::map<PageId, std::string> titles;

  explicit TaggedList(const StepWorld& world) {
    for (std::size_t index = 0; index < world.list().pageCount(); ++index) {
      const Page& page = world.list().page(index);
      titles.emplace(page.id, page.title);
      for (std::size_t slot = 0; slot < page.friends.size(); ++slot)
        if (page.friends[slot]) enter(world, page.friends[slot]->id, {page.id, slot});
    }
  }

 private:
  void enter(const StepWorld& world, FriendId id, std::pair<PageId, std::uint64_t> place) {
    const std::int64_t tag = *world.formOf(id).at("Tag").integer();
    EXPECT_TRUE(ids.emplace(tag, id).second) << "somebody is there twice";
    places.emplace(tag, place);
    forms.emplace(tag, world.formOf(id));
  }
};

/// Judges a step that was taken back while others came after it. `base` is what it left, `ours` what it found.
class Judgement {
 public:
  Judgement(const TaggedList& ours, const TaggedList& base, const TaggedList& theirs, const TaggedList& result,
            const TakenBack& taken, bool isStored)
      : _ours(ours), _base(base), _theirs(theirs), _result(result), _taken(taken), _isStored(isStored) {}

  /// Whether no page of the step is gone, which another one could be taken for.
  bool arePagesCertain() const {
    return !_isStored &&
           std::ranges::all_of(_base.titles, [&](const auto& page) { return _theirs.titles.contains(page.first); });
  }
  /// Whether no friend of the step is.
  bool areFriendsCertain() const {
    return std::ranges::all_of(_base.ids, [&](const auto& person) { return _theirs.ids.contains(person.first); });
  }

  void expectAll() const {
    for (const auto& [tag, place] : _theirs.places) expectRightly(tag, place);
    for (const auto& [tag, id] : _ours.ids)
      if (!_base.ids.contains(tag) && !_theirs.ids.contains(tag)) expectBack(tag);
    for (const auto& [tag, place] : _result.places)
      EXPECT_TRUE(_theirs.ids.contains(tag) || (_ours.ids.contains(tag) && !_base.ids.contains(tag)));
    if (arePagesCertain()) expectPages();
  }

 private:
  using PlaceOfPage = std::pair<PageId, std::uint64_t>;

  static std::optional<PlaceOfPage> placeIn(const TaggedList& list, std::int64_t tag) {
    const auto found = list.places.find(tag);
    return found == list.places.end() ? std::nullopt : std::optional(found->second);
  }
  bool isKept(TakenBack::Part part, FriendId id) const {
    return std::ranges::any_of(_taken.kept, [&](const auto& kept) { return kept.part == part && kept.id == id; });
  }

  // Somebody who is in the list.
  void expectRightly(std::int64_t tag, PlaceOfPage theirs) const {
    SCOPED_TRACE("friend " + std::to_string(tag));
    const auto ours = placeIn(_ours, tag), base = placeIn(_base, tag), result = placeIn(_result, tag);
    if (base && !ours) {
      EXPECT_FALSE(result) << "was added by the step";
      return;
    }
    ASSERT_TRUE(result) << "is lost";
    EXPECT_EQ(_result.ids.at(tag), _theirs.ids.at(tag));
    if (ours && base) {
      expectPlace(*ours, *base, theirs, *result, _theirs.ids.at(tag));
      expectForm(_ours.forms.at(tag), _base.forms.at(tag), _theirs.forms.at(tag), _result.forms.at(tag));
    } else {
      EXPECT_EQ(*result, theirs);
    }
  }

  void expectPlace(PlaceOfPage ours, PlaceOfPage base, PlaceOfPage theirs, PlaceOfPage result, FriendId id) const {
    if (!arePagesCertain()) return;
    if (ours != base && theirs == base) {
      EXPECT_TRUE(result == ours || !isFreeFor(ours, id)) << "could have gone back";
    } else {
      EXPECT_EQ(result, theirs);
      EXPECT_EQ(isKept(TakenBack::Part::place, id), ours != base && theirs != ours);
    }
  }

  // Whether nobody else is there at the end.
  bool isFreeFor(PlaceOfPage place, FriendId id) const {
    if (!_result.titles.contains(place.first)) return false;
    return std::ranges::none_of(
        _result.places, [&](const auto& entry) { return entry.second == place && _result.ids.at(entry.first) != id; });
  }

  static void expectForm(const Dictionary& ours, const Dictionary& base, const Dictionary& theirs,
                         const Dictionary& result) {
    for (const char* key : {"ReplyAs", "PreferredDestination", "Name", "Tag", "of a later version"}) {
      const Value* const before = valueForKey(ours, key);
      const Value* const after = valueForKey(base, key);
      const Value* const now = valueForKey(theirs, key);
      const Value* const expected = areEqual(after, now) ? before : now;
      EXPECT_TRUE(areEqual(valueForKey(result, key), expected)) << key;
    }
  }
  static bool areEqual(const Value* one, const Value* other) { return one && other ? *one == *other : one == other; }

  void expectBack(std::int64_t tag) const {
    const Dictionary& form = _ours.forms.at(tag);
    const bool isThereAgain = std::ranges::any_of(_taken.kept, [&](const auto& kept) {
      return kept.part == TakenBack::Part::membership && kept.id.number != 0 && kept.name == nameToSay(form);
    });
    const auto found = _result.forms.find(tag);
    ASSERT_TRUE(found != _result.forms.end() || isThereAgain) << tag << " did not come back";
    if (found != _result.forms.end()) {
      EXPECT_EQ(found->second, form);
    }
  }

  void expectPages() const {
    for (const auto& [page, title] : _theirs.titles) {
      const bool isInserted = _base.titles.contains(page) && !_ours.titles.contains(page);
      ASSERT_TRUE(isInserted || _result.titles.contains(page)) << "a page is lost";
      if (!_result.titles.contains(page)) continue;
      const bool isOurs = _ours.titles.contains(page) && _base.titles.contains(page) && _base.titles.at(page) == title;
      EXPECT_EQ(_result.titles.at(page), isOurs ? _ours.titles.at(page) : title);
    }
  }

  const TaggedList& _ours;
  const TaggedList& _base;
  const TaggedList& _theirs;
  const TaggedList& _result;
  const TakenBack& _taken;
  const bool _isStored;
};

// Where friends look alike, only while nobody is gone: a friend who comes later may be taken for one who went.
// PELLOR_TAKEN_BACK_LATER=<count>: how many steps are taken back.
TEST_P(TakeBackSeedsTest, WithOtherStepsInBetweenNothingIsLost) {
  std::size_t count = 0, judged = 0;
  forEachSeed(countOf("PELLOR_TAKEN_BACK_LATER", 6000, 600), [&](std::uint64_t seed) {
    const bool hasLookalikes = seed % 2 == 0;
    RandomSteps random(seed, hasLookalikes);
    for (std::size_t steps = random.below(5); steps > 0; --steps) random.step();
    const TaggedList ours(random.world());
    const StepRecord step = random.step();
    const TaggedList base(random.world());
    for (std::size_t steps = random.below(6); steps > 0; --steps) random.step();
    const TaggedList theirs(random.world());
    const std::string now = random.world().text();
    const bool isStored = seed % 4 == 1;
    const auto answer = random.world().takeBack(isStored ? StepWorld::asStored(step) : step);
    ++count;
    if (answer.taken.refusal) {
      EXPECT_EQ(random.world().text(), now);
      return;
    }
    EXPECT_TRUE(random.world().isLastPageEmpty());
    const TaggedList result(random.world());
    const Judgement judgement(ours, base, theirs, result, answer.taken, isStored);
    if (hasLookalikes && !judgement.areFriendsCertain()) return;
    ++judged;
    judgement.expectAll();
  });
  EXPECT_LE(count, judged * 2) << "most were not judged";
}

INSTANTIATE_TEST_SUITE_P(Seeds, TakeBackSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
