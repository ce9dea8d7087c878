#include "pellor/list/internal/TakeBack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tests/list/StepWorld.h"

namespace pellor {
namespace {

using Part = TakenBack::Part;

/// A letter is a friend, and so is the capital one: somebody else who looks the same. Those up to m have a contact, the
/// others a number alone; the star is a third n, the plus a fourth one.
Dictionary formOfLetter(char letter) {
  const std::string name(1, letter == '*' || letter == '+' ? 'n' : static_cast<char>(std::tolower(letter)));
  Dictionary form{{"ABRecordID", -1}, {"Monogram", ""}, {"AllValues", Array{Value(name + "@x")}}};
  if (name <= "m") form.insert({{"ABRecordGUID", "contact of " + name}, {"Name", name}});
  return form;
}

/// Lists as text: "1Work:ab.|2c.." are two pages with the ids 1 and 2, the first one with a title; a dot is an empty
/// slot.
class TextWorld {
 public:
  TextWorld(std::uint64_t pageSize, std::uint64_t mostPages) : _world({pageSize, mostPages, false}) {
    _world.countFrom(1000);
  }

  StepRecord become(const std::string& text) {
    return _world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
      for (std::size_t index = 0; index < draft.pageCount(); ++index)
        for (const FriendId id : draft.friendsOn(index)) draft.lift(id);
      std::size_t index = 0;
      std::vector<PageId> pages;
      for (const std::string& page : split(text)) pages.push_back({static_cast<std::uint64_t>(page[0] - '0')});
      for (std::size_t old = draft.pageCount(); old-- > 0;)
        if (std::ranges::find(pages, draft.pageId(old)) == pages.end()) draft.removePage(old);
      for (const std::string& page : split(text)) fill(draft, forms, index++, page);
    });
  }

  StepWorld::Answer takeBack(const StepRecord& step) {
    StepWorld::Answer answer = _world.takeBack(step);
    for (const auto& restored : answer.taken.restored) _restored.insert(restored.id);
    return answer;
  }

  /// Without the ids of pages, and those who were restored in small letters.
  std::string text() const {
    std::string text;
    for (std::size_t index = 0; index < _world.list().pageCount(); ++index) {
      const Page& page = _world.list().page(index);
      text += (index == 0 ? "" : "|") + page.title + (page.title.empty() ? "" : ":");
      for (const auto& person : page.friends) text += person ? letterOf(*person) : '.';
    }
    return text;
  }

  static std::string textOf(const std::vector<KeptChange>& kept) {
    static const std::vector<std::string> parts{"membership", "place", "replyAs", "chosenNumber",
                                                "metadata",   "card",  "title",   "page"};
    std::string text;
    for (const auto& each : kept)
      text += (text.empty() ? "" : ", ") + parts.at(static_cast<std::size_t>(each.part)) + " " +
              each.name.substr(0, each.name.find('@')) + (each.key.empty() ? "" : "." + each.key);
    return text;
  }

 private:
  static std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> pages(1);
    for (const char character : text) {
      if (character == '|') {
        pages.emplace_back();
      } else {
        pages.back() += character;
      }
    }
    return pages;
  }

  static void fill(ListDraft& draft, StepWorld::Forms& forms, std::size_t index, const std::string& text) {
    const PageId id{static_cast<std::uint64_t>(text[0] - '0')};
    const auto colon = text.find(':');
    const std::string title = colon == std::string::npos ? "" : text.substr(1, colon - 1);
    if (const auto old = draft.indexOf(id)) {
      draft.movePage(*old, index);
      draft.rename(index, title);
    } else {
      draft.insertPage(index, title, id);
    }
    std::uint64_t slot = 0;
    for (const char letter : text.substr(colon == std::string::npos ? 1 : colon + 1)) {
      const FriendId person{static_cast<std::uint64_t>(letter)};
      if (letter != '.') {
        forms[person] = formOfLetter(letter);
        draft.put(person, {index, slot});
      }
      ++slot;
    }
  }

  char letterOf(const Friend& person) const {
    return _restored.contains(person.id) ? person.destinations.front()[0] : static_cast<char>(person.id.number);
  }

  StepWorld _world;
  std::set<FriendId> _restored;
};

struct Case {
  std::string what;
  std::string before;
  std::string after;
  std::string now;
  std::string result;  // empty: refused, there is no room
  std::string kept = {};
  std::uint64_t pageSize = 3;
  std::uint64_t mostPages = 4;
  bool isById = false;  ///< holds as long as the process knows them by their ids
};

const std::vector<Case> Cases{
    {"added: leaves, wherever it stands", "1ab.", "1abc", "1c.a|2b..", "..a|b.."},
    {"removed: takes its slot", "1abc", "1a.c", "1c.a", "cba"},
    {"removed: the nearest slot, of two the later one", "1abc..", "1ab...", "1.bd..", ".bdc.", "", 5},
    {"removed: the earlier one is nearer", "1abcd", "1abc.", "1.bce", "dbce", "", 4},
    {"removed: its page is full", "1ab|2c.", "1a.|2c.", "1ad|2c.", "ad|cb", "", 2},
    {"removed: all pages are full", "1ab", "1a.", "1ad", "ad|.b", "", 2},
    {"removed: there may be no more pages", "1ab", "1a.", "1ad", "", "", 2, 1},
    {"removed: is a friend again", "1ab.", "1a..", "1a.B", "a.B", "membership b"},
    {"removed: is a friend again, without a contact", "1an.", "1a..", "1a.N", "a.N", "membership n"},
    {"removed: somebody alike was there all along", "1nN.", "1.N.", "1.N.", "nN."},
    {"removed: somebody alike was there and moved on", "1aA.", "1.A.", "1A..", "Aa."},
    {"removed: both, and one is a friend again", "1nN.", "1...", "1*..", "*n.", "membership n"},
    {"removed: one is a friend again, and one was there", "1nN*.", "1..*.", "1+.*.", "+n*.", "membership n", 4},
    {"removed: nobody loses a slot to somebody who is only near it", "1ab.", "1...", "1x..", "xba"},
    {"moved: goes back", "1a..|2b..", "1..a|2b..", "1c.a|2b..", "ca.|b.."},
    {"moved: its slot is taken", "1a..|2b..", "1...|2ba.", "1cd.|2ba.", "cda|b.."},
    {"moved: moved on since", "1a..|2b..", "1...|2ba.", "1...|2b.a", "...|b.a", "place a"},
    {"moved: is gone since", "1a..|2b..", "1...|2ba.", "1...|2b..", "...|b..", "membership a"},
    {"swapped, and one moved on", "1ab.", "1ba.", "1b.a", ".ba", "place a"},
    {"swapped, and somebody is in between", "1ab.|2cd.", "1ac.|2bd.", "1ace|2bd.", "abe|cd."},
    {"moved, and the page behind others now", "1ab|2c.", "1ab|2.c", "4ef|1ab|2.c", "ef|ab|c.", "", 2},
    {"two who are alike changed places", "1n.N", "1N.n", "1N.n", "n.N"},
    {"a title is another one now", "1Work:a..", "1Family:a..", "1Club:.a.", "Club:.a.", "title Club"},
    {"a title goes with its page", "1Work:a..|2b..", "1Family:a..|2b..", "2b..|3c..|1Family:a..", "b..|c..|Work:a.."},
    {"a title is not given to another page", "1Work:a..|2b..", "1a..|2b..", "2b..", "b.."},
    {"an inserted page goes", "1a..", "1a..|2Club:...", "1a..|2Club:...", "a.."},
    {"an inserted page goes with the friends who came to it", "1ab.", "1a..|2b..", "1ac.|2b..", "acb"},
    {"on an inserted page somebody stands", "1a..", "1a..|2...", "1a..|2c..", "a..|c..", "page "},
    {"an inserted page is the only one", "1a..", "1a..|2Club:...", "2Club:...", "..."},
    {"an empty page at the end is not laid out", "1a..", "2Club:.a.|1...", "2Club:.a.", "a.."},
    {"nor used", "1a..|2...", "1.a.|2...", "1.a.", "a.."},
    {"nor behind the page that it came from", "1a..|2...|3b..", "1a..|3b..|2...", "1a..|3b..", "a..|...|b.."},
    {"an inserted page goes, and not another empty one", "1a..", "1a..|2Club:...", "1a..|3...|2Club:...", "a..|..."},
    {"an inserted page has another title", "1a..", "1a..|2...", "1a..|2Club:...", "a..|Club:...", "page Club"},
    {"a removed page comes back", "1ab.|2Club:cd.|3ef.", "1ab.|3ef.", "1ab.|3fe.", "ab.|Club:cd.|fe."},
    {"there may be no more pages", "1a..|2Club:c..", "1a..", "1a..|3d..", "ac.|d..", "page Club", 3, 2},
    {"another page took its place, and went", "1a..|2b..", "3cd.", "3cd.", "a..|b..", "", 3, 2},
    {"all pages are other ones, and one more came", "1a..|2b..", "3cd.", "3cd.|4e..", "ab.|e..", "page ", 3, 2},
    {"a moved page goes back", "1ab.|2cd.|3ef.", "2cd.|3ef.|1ab.", "2cd.|3ef.|1b..", "b..|cd.|ef."},
    {"a moved page moved on", "1ab.|2cd.|3ef.", "2cd.|3ef.|1ab.", "2cd.|1ab.|3ef.", "cd.|ab.|ef.", "place "},
    {"a friend who is gone is nobody else", "1n..|2N..", "1..n|2N..", "1..N|2...", "..N|...", "membership n", 3, 4,
     true},
    {"a page that is gone is no other one", "5Work:a..|1b..", "5Club:a..|1b..", "1Club:b..", "Club:b..", "", 3, 4,
     true},
};

// With the ids of the process that made the step, and as another process reads it.
TEST(TakeBackTest, WhatIsAsTheStepLeftItBecomesWhatItWasAndTheRestStays) {
  for (const Case& each : Cases) {
    for (const bool isStored : {false, true}) {
      if (isStored && each.isById) continue;
      SCOPED_TRACE(each.what + (isStored ? ", as stored" : ""));
      TextWorld world(each.pageSize, each.mostPages);
      world.become(each.before);
      const StepRecord made = world.become(each.after);
      world.become(each.now);
      const auto answer = world.takeBack(isStored ? StepWorld::asStored(made) : made);
      ASSERT_EQ(answer.taken.refusal.has_value(), each.result.empty());
      if (each.result.empty()) {
        EXPECT_EQ(answer.taken.refusal->reason, RefusalReason::noRoom);
        continue;
      }
      EXPECT_EQ(world.text(), each.result);
      EXPECT_EQ(TextWorld::textOf(answer.taken.kept), each.kept);
    }
  }
}

TEST(TakeBackTest, FriendsAndPagesThatComeBackAreTheSameOnes) {
  StepWorld world({2, 3, false});
  const FriendId id = world.newFriend();
  PageId page;
  world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
    draft.insertPage(0, "");
    page = draft.insertPage(1, "");
    forms[id] = formOfLetter('a');
    draft.put(id, {1, 0});
  });
  const StepRecord removed = world.step([&](ListDraft& draft, StepWorld::Forms&) {
    draft.lift(id);
    draft.removePage(1);
  });
  world.takeBack(removed);
  EXPECT_EQ(world.list().placeOf(id), (Place{1, 0}));
  EXPECT_EQ(world.list().indexOf(page), 1U);
  world.step([&](ListDraft& draft, StepWorld::Forms&) { draft.lift(id); });
  const auto answer = world.takeBack(StepWorld::asStored(removed));
  EXPECT_GT(answer.taken.restored.at(0).id, id) << "nobody knows the id of a step that was read";
}

/// A friend's fields, one word each.
Dictionary formWith(const std::string& fields) {
  Dictionary form = formOfLetter('a');
  Dictionary metadata;
  for (std::size_t at = 0; at < fields.size(); at += 3) {
    const std::string value = fields.substr(at + 1, 1);
    if (fields[at] == 'r') form.insert_or_assign("ReplyAs", value);
    if (fields[at] == 'n') form.insert_or_assign("PreferredDestination", value);
    if (fields[at] == 'N') form.insert_or_assign("Name", value);
    if (fields[at] == 'G') form.insert_or_assign("ABRecordGUID", value);
    if (fields[at] == 'k' || fields[at] == 'l') metadata.insert_or_assign(std::string(1, fields[at]), value);
    if (fields[at] == 'u') form.insert_or_assign("of a later version", value);
  }
  if (!metadata.empty()) form.insert_or_assign("Metadata", metadata);
  return form;
}

// Fields as a letter and its value: r reply preference, n chosen number, k and l metadata, N and G of the card, u an
// unknown key.
TEST(TakeBackTest, EachFieldIsTakenBackIfItIsAsTheStepLeftIt) {
  struct FieldCase {
    std::string what, before, after, now, result, kept;
  };
  const std::vector<FieldCase> cases{
      {"a value that was another one", "r1", "r2", "r2", "r1", ""},
      {"one that there was not", "", "n2", "n2", "", ""},
      {"one that was taken away", "k1 l1", "l1", "l1", "k1 l1", ""},
      {"the last entry of the metadata", "", "k1", "k1 l2", "l2", ""},
      {"each for itself", "r1 n1 k1", "r2 n2 k2", "r3 n2 k2", "r3 n1 k1", "replyAs a"},
      {"each entry for itself", "k1 l1", "k2 l2", "k3 l2", "k3 l1", "metadata a.k"},
      {"it is as it was already", "r1", "r2", "r1", "r1", ""},
      {"what the step did not touch", "r1 k1", "r2 k1", "r2 k7 n5", "r1 k7 n5", ""},
      {"the card as one", "G1 Nx", "G2 Ny", "G2 Ny r4", "G1 Nx r4", ""},
      {"the card was changed since", "G1 Nx", "G2 Nx", "G2 Nz", "G2 Nz", "card z"},
      {"unknown keys are not the step's", "r1 u1", "r2 u1", "r2 u2", "r1 u2", ""},
  };
  for (const FieldCase& each : cases) {
    for (const bool isStored : {false, true}) {
      SCOPED_TRACE(each.what + (isStored ? ", as stored" : ""));
      StepWorld world({2, 1, false});
      const FriendId id = world.newFriend();
      const auto become = [&](const std::string& fields) {
        return world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
          forms[id] = formWith(fields);
          if (draft.pageCount() == 0) draft.insertPage(0, "");
          if (!draft.placeOf(id)) draft.put(id, {0, 0});
        });
      };
      become(each.before);
      const StepRecord made = become(each.after);
      become(each.now);
      const auto answer = world.takeBack(isStored ? StepWorld::asStored(made) : made);
      EXPECT_EQ(Value(world.formOf(id)).description(), Value(formWith(each.result)).description());
      EXPECT_EQ(TextWorld::textOf(answer.taken.kept), each.kept);
    }
  }
}

// Of a friend who has another card now its number may still tell, but never of one of two contacts with one line.
TEST(TakeBackTest, AFriendOfAStoredStepIsFoundByWhatIsLeftOfIt) {
  struct FoundCase {
    std::string what;
    Dictionary now;
    bool isFound;
  };
  const auto person = [](const char* guid, const char* name, std::vector<const char*> destinations) {
    Dictionary form{{"Monogram", ""}, {"AllValues", Array(destinations.begin(), destinations.end())}};
    if (*guid) form.emplace("ABRecordGUID", guid);
    if (*name) form.emplace("Name", name);
    return form;
  };
  const std::vector<FoundCase> cases{
      {"by the contact", person("1", "New", {"+4"}), true},
      {"by name and a number", person("2", "Ann", {"+1", "+3"}), true},
      {"by the numbers", person("", "New", {"+1", "+2"}), true},
      {"not by some of them", person("", "New", {"+1"}), false},
      {"not by the name", person("2", "Ann", {"+4"}), false},
      {"not by the line of another contact", person("2", "Bob", {"+1", "+2"}), false},
  };
  for (const FoundCase& each : cases) {
    SCOPED_TRACE(each.what);
    StepWorld world({3, 1, false});
    const FriendId id = world.newFriend();
    const auto stand = [&](std::uint64_t slot, const Dictionary& form) {
      return world.step([&](ListDraft& draft, StepWorld::Forms& forms) {
        if (draft.pageCount() == 0) draft.insertPage(0, "");
        forms[id] = form;
        draft.lift(id);
        draft.put(id, {0, slot});
      });
    };
    stand(0, person("1", "Ann", {"+1", "+2"}));
    const StepRecord moved = stand(2, person("1", "Ann", {"+1", "+2"}));
    stand(2, each.now);
    const auto answer = world.takeBack(StepWorld::asStored(moved));
    EXPECT_EQ(world.list().placeOf(id), (Place{0, each.isFound ? 0U : 2U}));
    EXPECT_EQ(answer.taken.kept.empty(), each.isFound);
  }
}

TEST(TakeBackTest, WhoStoodBehindTheEndOfASmallerPageComesToTheLastSlotOfANewOne) {
  TextWorld large(4, 2);
  large.become("1abcd");
  const StepRecord removal = StepWorld::asStored(large.become("1abc."));
  TextWorld small(2, 3);
  small.become("1ab|2ce");
  EXPECT_FALSE(small.takeBack(removal).taken.refusal);
  EXPECT_EQ(small.text(), "ab|ce|.d");
}

}  // namespace
}  // namespace pellor
