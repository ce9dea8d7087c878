// Steps that chance makes, taken back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
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

// PELLOR_TAKEN_BACK_LATER=<count>: how many steps are taken back.
TEST_P(TakeBackSeedsTest, WithOtherStepsInBetweenNobodyIsLost) {
  forEachSeed(countOf("PELLOR_TAKEN_BACK_LATER", 6000, 600), [](std::uint64_t seed) {
    RandomSteps random(seed, false);
    const StepWorld& world = random.world();
    for (std::size_t steps = random.below(5); steps > 0; --steps) random.step();
    const StepWorld::Forms before = world.forms();
    const StepRecord step = random.step();
    const StepWorld::Forms after = world.forms();
    for (std::size_t steps = random.below(6); steps > 0; --steps) random.step();
    const StepWorld::Forms later = world.forms();
    const std::string text = world.text();
    const auto answer = random.world().takeBack(seed % 4 == 1 ? StepWorld::asStored(step) : step);
    if (answer.taken.refusal) {
      EXPECT_EQ(world.text(), text);
      return;
    }
    EXPECT_TRUE(world.isLastPageEmpty());
    for (const auto& [id, form] : later)
      EXPECT_EQ(world.forms().contains(id), before.contains(id) || !after.contains(id)) << form.at("Tag").description();
    const auto isThere = [&](const Dictionary& form) {
      return std::ranges::any_of(world.forms(), [&](const auto& each) { return each.second == form; });
    };
    for (const auto& [id, form] : before) EXPECT_TRUE(after.contains(id) || later.contains(id) || isThere(form));
  });
}

INSTANTIATE_TEST_SUITE_P(Seeds, TakeBackSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
