// Two processes that edit one list at the same moment, at every boundary of their tasks, with two switches from one to
// the other: what comes out is what one order of the edits gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/list/SeededWorld.h"

namespace pellor {
namespace {

/// A list of three friends, with a step that can be taken back, in two processes at rest.
class Ground : public SeededWorld {
 public:
  Ground() : SeededWorld(1) {
    setGroups(4, 3);
    contacts({"Ann", "Bob", "Cy", "Dan"});
    store("Ann#,Bob#,-|Cy#,-,-");
    for (int count = 0; count < 2; ++count) all.push_back(open());
    all[0]->apply("reply Cy home");
    rest();
  }
  // What is left to tell of steps is told as their processes end.
  ~Ground() override { all.clear(); }

  /// To be called before each operation: which of the author's it is.
  void begin(std::size_t author, std::size_t place) { _place[author] = place; }
  /// Steps of that process that were said not to be done, after all, by their places in its sequence.
  const std::set<std::size_t>& refused(std::size_t author) const { return _refused[author]; }
  StoredHandler noteRefusal(std::size_t author) {
    return [this, author, place = _place[author]](const std::optional<Refusal>& refusal) {
      if (refusal) _refused[author].insert(place);
    };
  }
  void renameBob() {
    world.addressBook().change(guidOf("Bob"), [](TestContact& bob) { bob.first = "Bobby"; });
  }
  /// One of the process's tasks. False when none is ready.
  bool step(std::size_t index) { return scheduler->stepOf(all[index]->process().process()); }

  /// The friends with what is known of them, and where it is asked for on which page, and its title; not the places on
  /// a page, which those that meet on one share out.
  std::string state(bool withPages) {
    std::string text;
    const Snapshot list = all[0]->snapshot();
    std::multiset<std::string> friends;
    for (std::size_t index = 0; index < list.pageCount(); ++index) {
      for (const auto& person : list.page(index).friends)
        if (person) friends.insert(textOf(*person));
      const bool isLast = index + 1 == list.pageCount();
      if (isLast && friends.empty()) break;
      if (!withPages && !isLast) continue;
      text += withPages ? list.page(index).title + ":" : "";
      for (const std::string& person : std::exchange(friends, {})) text += " " + person;
      text += " | ";
    }
    return text;
  }
  /// The same list, place by place, in both.
  bool doAgree() { return all[0]->process().list() == all[1]->process().list(); }

 private:
  static std::string textOf(const Friend& person) {
    return person.name + "{" + person.replyAs.value_or("") + Value(person.metadata).description() + "}";
  }

  std::array<std::size_t, 2> _place{};
  std::array<std::set<std::size_t>, 2> _refused;
};

/// What a person does at one of the processes; nothing where it cannot be done any more.
struct Operation {
  std::string name;
  std::string edits;  ///< with the author's number in place of an asterisk; empty: the name says
};

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      {"add", "contact Dan"},
      {"remove", "remove Ann"},
      {"move", "move Ann 2:*"},
      {"swap", ""},
      {"title", "title 1 title*"},
      {"purge", ""},
      {"reply as", "reply Ann r*"},
      {"metadata", "meta Ann key v*"},
      {"refresh", ""},
      {"undo", ""},
  };
  return all;
}

/// Where Cy stands; empty where there is no such friend.
std::string placeOfCy(ListProcess& process) {
  const auto cy = process.friendNamed("Cy");
  return cy ? textOf(*process.snapshot().placeOf(cy->id)) : "";
}

void perform(const Operation& operation, Ground& ground, std::size_t author) {
  ListProcess& process = *ground.all[author];
  const StoredHandler note = ground.noteRefusal(author);
  if (!operation.edits.empty()) {
    std::string edits = operation.edits;
    std::ranges::replace(edits, '*', static_cast<char>('2' + author));
    process.apply(edits, note);
  } else if (operation.name == "swap") {
    if (const std::string place = placeOfCy(process); !place.empty()) process.apply("move Bob " + place, note);
  } else if (operation.name == "purge") {
    process.run([&] { process.process().manager().purgeEmptyFriendGroups(); });
  } else if (operation.name == "refresh") {
    ground.renameBob();
    process.run([&] { static_cast<void>(process.list().refresh()); });
  } else {
    process.undo({}, note);
  }
}

/// The operations of each process, in their order.
using Sequences = std::array<std::vector<std::size_t>, 2>;

// Pages are known by who stands on them: where all change over nobody can say which of them an edit means.
bool arePagesKnown(const Sequences& sequences) {
  std::set<std::string_view> names;
  for (const auto& sequence : sequences)
    for (const std::size_t operation : sequence) names.insert(operations()[operation].name);
  return !names.contains("swap") || !names.contains("move");
}

std::string textOf(const Sequences& sequences) {
  std::string text;
  for (const auto& sequence : sequences) {
    text += text.empty() ? "" : " beside ";
    for (const std::size_t operation : sequence) text += operations()[operation].name + ", ";
  }
  return text;
}

/// What every order of the operations gives that keeps each process's own.
std::set<std::string> statesInOrder(const Sequences& sequences, bool withPages) {
  std::vector<std::size_t> authors(sequences[0].size(), 0);
  authors.insert(authors.end(), sequences[1].size(), 1);
  std::set<std::string> states;
  do {
    Ground ground;
    std::array<std::size_t, 2> next{};
    for (const std::size_t author : authors) {
      ground.begin(author, next[author]);
      perform(operations()[sequences[author][next[author]++]], ground, author);
      ground.rest();
    }
    states.insert(ground.state(withPages));
  } while (std::ranges::next_permutation(authors).found);
  return states;
}

/// Walks through what a process does: an operation, its tasks until none is ready, the next operation.
class Walk {
 public:
  Walk(Ground& ground, std::size_t author, const std::vector<std::size_t>& sequence)
      : _ground(ground), _author(author), _sequence(sequence) {}

  /// False when there is nothing left.
  bool step() {
    if (_next > 0 && _ground.step(_author)) return true;
    if (_next == _sequence.size()) return false;
    _ground.begin(_author, _next);
    perform(operations()[_sequence[_next++]], _ground, _author);
    return true;
  }
  /// How many steps were there of so many.
  std::size_t walk(std::size_t steps) {
    std::size_t count = 0;
    while (count < steps && step()) ++count;
    return count;
  }
  void finish() {
    while (step()) {
    }
  }

 private:
  Ground& _ground;
  const std::size_t _author;
  const std::vector<std::size_t>& _sequence;
  std::size_t _next = 0;
};

/// The operations but for those that were refused after all.
Sequences without(Sequences sequences, const Ground& ground) {
  for (std::size_t author = 0; author < 2; ++author) {
    const auto& refused = ground.refused(author);
    for (auto place = refused.rbegin(); place != refused.rend(); ++place)
      sequences[author].erase(sequences[author].begin() + static_cast<std::ptrdiff_t>(*place));
  }
  return sequences;
}

/// The same with what both did done once: both moved somebody to the same place, and there that friend is.
std::optional<Sequences> withoutRepeated(Sequences sequences) {
  for (const std::size_t operation : sequences[0]) {
    const auto repeated = std::ranges::find(sequences[1], operation);
    if (repeated == sequences[1].end()) continue;
    sequences[1].erase(repeated);
    return sequences;
  }
  return std::nullopt;
}

class InterleavingTest : public SeededTest {
 protected:
  const std::set<std::string>& expected(const Sequences& sequences, bool withPages) {
    auto [known, isNew] = _states.try_emplace({sequences, withPages});
    if (isNew) known->second = statesInOrder(sequences, withPages);
    return known->second;
  }

  void judge(const Sequences& sequences, Ground& ground, const std::string& where) {
    EXPECT_TRUE(ground.doAgree()) << where;
    const bool withPages = arePagesKnown(sequences);
    const std::string state = ground.state(withPages);
    std::string others;
    for (std::optional<Sequences> done = without(sequences, ground); done; done = withoutRepeated(*done)) {
      if (expected(*done, withPages).contains(state)) return;
      for (const std::string& other : expected(*done, withPages)) others += "\n  " + other;
    }
    ADD_FAILURE() << where << ":\n  " << state << "\nand no order of what was done gives that, but" << others;
  }

  // At each boundary of the first process to the second, and at each of that one back.
  void tryAll(const Sequences& sequences) {
    for (std::size_t first = 1;; ++first) {
      for (std::size_t second = 1;; ++second) {
        Ground ground;
        Walk one(ground, 0, sequences[0]), other(ground, 1, sequences[1]);
        const bool isFirstOver = one.walk(first) < first;
        const bool isSecondOver = other.walk(second) < second;
        if (isFirstOver) return;
        if (isSecondOver) break;
        one.finish();
        other.finish();
        ground.rest();
        ++_tried;
        judge(sequences, ground,
              textOf(sequences) + "after " + std::to_string(first) + " and " + std::to_string(second));
      }
    }
  }

  std::map<std::pair<Sequences, bool>, std::set<std::string>> _states;  // that orders give
  std::size_t _tried = 0;
};

// PELLOR_PAIRS=<count>: so many of the hundred.
TEST_P(InterleavingTest, OneOperationInEachOfTwoProcesses) {
  const std::size_t count = operations().size();
  forEachSeed(countOf("PELLOR_PAIRS", count * count, 20), [&](std::uint64_t seed) {
    tryAll({{{seed / count % count}, {seed % count}}});
  });
  EXPECT_TRUE(HasFailure() || _tried > 0);
}

// PELLOR_SEQUENCES=<count>: so many of the ten thousand; a seed says which.
TEST_P(InterleavingTest, TwoOperationsInEachOfTwoProcesses) {
  const std::size_t count = operations().size();
  forEachSeed(countOf("PELLOR_SEQUENCES", 20, 20), [&](std::uint64_t seed) {
    std::uint64_t number = seed * 7'919 % (count * count * count * count);
    Sequences sequences;
    for (auto& sequence : sequences) {
      for (int place = 0; place < 2; ++place) {
        sequence.push_back(number % count);
        number /= count;
      }
    }
    tryAll(sequences);
  });
  EXPECT_TRUE(HasFailure() || _tried > 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, InterleavingTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
