// Two processes do steps at random, and somebody is forgotten.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/list/ForgetWorld.h"

namespace pellor {
namespace {

class ForgettingWorld : public ForgetWorld {
 public:
  explicit ForgettingWorld(std::uint64_t seed) : ForgetWorld(seed, {"Pa", "Pb", "Pc", "Pd", "Pe", "Pf", "Pg"}) {
    setGroups(4, 2 + below(2));
    contacts(names);
    for (int count = 0; count < 2; ++count) all.push_back(open());
  }

  void run() {
    for (std::size_t round = 1 + below(3); round > 0 && !HasFailure(); --round) {
      for (std::size_t steps = 5 + below(20); steps > 0; --steps) {
        edit(someone());
        if (below(3) == 0) rest();
      }
      if (below(5) == 0) killOne();
      rest();
      const std::size_t own = below(2);
      for (std::size_t steps = below(3); steps > 0; --steps) editBeside(*all[1 - own]);
      for (std::size_t steps = below(2); steps > 0; --steps) edit(*all[own]);
      std::set<std::string> gone = {forgetSomebody(*all[own])};
      if (below(4) == 0) gone.insert(forgetSomebody(*all[1 - own]));
      rest();
      for (const std::string& name : gone) expectForgotten(name);
      expectSound();
    }
  }
  std::size_t forgotten() const { return _forgotten; }

 private:
  std::string forgetSomebody(ListProcess& process) {
    std::string name = some(names);
    if (process.forget(below(2) == 0 ? guidOf(name) : mailOf(name))) ++_forgotten;
    return name;
  }
  // A removal that another program takes back in the same moment brings a person back.
  void expectForgotten(const std::string& name) {
    EXPECT_EQ(all[0]->friendNamed(name) == nullptr, all[1]->friendNamed(name) == nullptr);
    if (!all[0]->friendNamed(name)) expectNoTraceOf(name);
  }

  void killOne() {
    auto& process = some(all);
    process->kill();
    process = open();
  }

  void edit(ListProcess& process) {
    const std::string name = some(names);
    if (below(5) == 0) {
      takeBackOrAgain(process);
    } else if (!process.friendNamed(name)) {
      process.apply("contact " + name);
    } else {
      change(process);
    }
  }

  // Adds nobody.
  void editBeside(ListProcess& process) { below(3) == 0 ? takeBackOrAgain(process) : change(process); }

  void takeBackOrAgain(ListProcess& process) { below(2) == 0 ? process.undo() : process.redo(); }

  void change(ListProcess& process) {
    std::string edits;
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      const std::string name = some(names);
      if (process.friendNamed(name)) edits += (edits.empty() ? "" : ";") + changeOf(name, process.snapshot());
    }
    process.apply(edits);
  }

  std::string changeOf(const std::string& name, const Snapshot& list) {
    const std::string page = std::to_string(1 + below(list.pageCount()));
    switch (below(5)) {
      case 0:
        return "remove " + name;
      case 1:
        return "move " + name + " " + page + ":" + std::to_string(1 + below(2));
      case 2:
        return below(3) == 0 ? "drop " + page : "page " + page + " 1";
      default:
        return carrying(name);
    }
  }

  std::size_t _forgotten = 0;
};

class ForgetSeedsTest : public SeededTest {};

TEST_P(ForgetSeedsTest, AfterItNoValueOfTheStoreTellsOfHim) {
  std::size_t forgotten = 0;
  forEachSeed(countOf("PELLOR_FORGET", 400, 60), [&](std::uint64_t seed) {
    ForgettingWorld world(seed);
    world.run();
    forgotten += world.forgotten();
  });
  EXPECT_GT(forgotten, 0U);
}

INSTANTIATE_TEST_SUITE_P(Parts, ForgetSeedsTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
