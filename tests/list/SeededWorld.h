// Processes that do what chance makes them.
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/list/ListProcess.h"
#include "tests/pellor/SeededTest.h"

namespace pellor {

class Chance {
 public:
  explicit Chance(std::uint64_t seed) : _random(seed) {}

  std::size_t below(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(_random); }
  template <class Elements>
  auto& some(Elements& elements) {
    return elements[below(elements.size())];
  }
  template <class Elements>
  void shuffle(Elements& elements) {
    std::ranges::shuffle(elements, _random);
  }
  /// One of a few titles, or none.
  std::string title() { return below(2) == 0 ? "" : "T" + std::to_string(below(3)); }

 private:
  std::mt19937_64 _random;
};

/// Makes edits, most of which can be done.
class RandomEdits {
 public:
  /// Also adds contacts with these names.
  explicit RandomEdits(Chance& chance, std::vector<std::string> names = {})
      : _chance(chance), _names(std::move(names)) {}

  Edits step(const Snapshot& list) {
    Edits edits;
    for (std::size_t count = 1 + _chance.below(3); count > 0; --count) edits.push_back(edit(list));
    return edits;
  }

 private:
  Edit edit(const Snapshot& list) {
    if (list.pageCount() == 0) return InsertPage{0, "N"};
    const auto friends = list.friends();
    const FriendId id = friends.empty() ? FriendId{} : _chance.some(friends)->id;
    const Page& page = list.page(_chance.below(list.pageCount()));
    const Place place{_chance.below(list.pageCount()), _chance.below(page.friends.size())};
    const auto number = [this](std::size_t count) { return std::to_string(_chance.below(count)); };
    switch (_chance.below(14)) {
      case 0:
      case 1:
      case 2:
        return addition(_chance.below(4) == 0 ? std::optional(place) : std::nullopt);
      case 3:
      case 4:
        return MoveFriend{id, place};
      case 5:
        return RemoveFriend{id};
      case 6:
        return SetReplyAs{id, _chance.below(2) == 0 ? std::nullopt : std::optional<std::string>("voice")};
      case 7:
        return SetMetadata{id, "k" + number(2), _chance.below(3) == 0 ? std::nullopt : std::optional(Value(number(9)))};
      case 8:
      case 9:
        return RenamePage{page.id, _chance.title()};
      case 10:
        return InsertPage{_chance.below(list.pageCount() + 1), _chance.title()};
      case 11:
        return MovePage{page.id, _chance.below(list.pageCount())};
      case 12:
        return filling(page);
      default:
        return RemovePage{page.id};
    }
  }

  Edit addition(std::optional<Place> to) {
    if (!_names.empty() && _chance.below(3) > 0)
      return AddFriend{.contactGUID = guidOf(_chance.some(_names)), .to = to};
    return AddFriend{.destination = "p" + std::to_string(_chance.below(25)) + "@example.org", .to = to};
  }

  Edit filling(const Page& page) {
    FillPage fill{page.id, {}};
    for (const auto& person : page.friends) fill.friends.push_back(person ? person->id : FriendId{});
    _chance.shuffle(fill.friends);
    return fill;
  }

  Chance& _chance;
  std::vector<std::string> _names;
};

/// A world of its own for each seed.
class SeededWorld : public ListTest, public Chance {
 public:
  /// `people`: names of contacts that come and go, and become friends.
  explicit SeededWorld(std::uint64_t seed, std::vector<std::string> people = {})
      : Chance(seed), names(std::move(people)) {
    scheduler = std::make_shared<SimulatedScheduler>(seed);
  }
  void TestBody() override {}
  using ListTest::launch;
  using ListTest::open;
  using ListTest::rest;

  ListProcess& someone() { return *some(all); }
  StepAnswer step(ListProcess& process, StoredHandler stored = {}) {
    return process.apply([this](const Snapshot& list) { return _edits.step(list); }, std::move(stored));
  }
  /// Takes one of the steps back; nothing where that one is taken back already.
  void takeBackSomething(ListProcess& process) {
    const auto steps = process.history();
    if (steps.empty()) return;
    const HistoryStep& step = some(steps);
    if (!step.isTakenBack) process.undo(step.id);
  }
  /// GUIDs and addresses are few, so that cards meet.
  void changeContacts() {
    InMemoryAddressBook& book = world.addressBook();
    const std::string guid = below(2) == 0 ? guidOf(some(names)) : "g" + std::to_string(below(4));
    if (below(3) == 0) {
      if (book.contact(guid)) book.remove(guid);
      return;
    }
    const std::string& name = some(names);
    TestContact card{.guid = guid, .first = below(4) == 0 ? name + "x" : name};
    if (below(5) > 0) card.emails.push_back({"home", mailOf(below(4) == 0 ? some(names) : name)});
    if (below(5) == 0) card.emails.push_back({"work", mailOf(some(names))});
    book.put(card);
  }
  void expectSound() const {
    for (const auto& process : all) {
      EXPECT_EQ(process->process().manager().invariantViolation(), std::nullopt);
      process->expectLikeManager();
    }
  }

  const std::vector<std::string> names;
  std::vector<std::unique_ptr<ListProcess>> all;

 private:
  RandomEdits _edits{*this, names};
};

}  // namespace pellor
