#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/cli/Program.h"

namespace pellor {
namespace {

using List = std::vector<std::string>;  // what stands in each slot; empty for an empty one

constexpr int Contacts = 60;
constexpr int Rounds = 200;

void addContacts(const Home& home) {
  for (int number = 0; number < Contacts; ++number) {
    const std::string text = std::to_string(number);
    home.addContact("contact-" + text, "Person " + text, "TEL:+4930444" + std::to_string(1000 + number) + "\n");
  }
}

class Writers {
 public:
  Writers(const Home& home, int count, int edits, int firstSeed) {
    for (int index = 0; index < count; ++index) {
      _writers.push_back(std::make_unique<Program>(
          home,
          std::vector<std::string>{PELLOR_EDITING_PROCESS, std::to_string(firstSeed + index), std::to_string(edits)}));
      EXPECT_EQ(_writers.back()->readLine(), "ready");
    }
  }

  void tell(const std::string& command) const {
    for (const auto& writer : _writers) writer->write(command + "\n");
  }

  void expectFromAll(const std::string& line) const {
    for (const auto& writer : _writers) EXPECT_EQ(writer->readLine(), line);
  }

  std::vector<List> reports() const {
    tell("report");
    std::vector<List> lists;
    lists.reserve(_writers.size());
    for (const auto& writer : _writers) lists.push_back(listIn(writer->readLine()));
    return lists;
  }

  void finish() const {
    for (const auto& writer : _writers) EXPECT_EQ(writer->finish().exitCode, 0);
  }

 private:
  static List listIn(const std::string& line) {
    EXPECT_THAT(line, testing::StartsWith("["));
    List list = nlohmann::json::parse(line);
    while (!list.empty() && list.back().empty()) list.pop_back();
    return list;
  }

  std::vector<std::unique_ptr<Program>> _writers;
};

// What a process that starts now reads from the store.
List storedList(const Home& home) {
  const Writers reader(home, 1, 0, 0);
  List list = reader.reports().front();
  reader.finish();
  return list;
}

void expectSound(const List& list) {
  std::set<std::string> seen;
  for (const std::string& friendInSlot : list) {
    if (friendInSlot.empty()) continue;
    EXPECT_TRUE(seen.insert(friendInSlot).second) << friendInSlot << " is there twice";
    EXPECT_THAT(friendInSlot,
                testing::AnyOf(testing::MatchesRegex("contact-([0-9]+)\\|Person [0-9]+\\|\\+4930444[0-9]{4}"),
                               testing::MatchesRegex("\\|\\|\\+4930555[0-9]{4}")));
  }
}

// Writers edit for ever, until some of their changes are seen and they are killed.
void editAndKill(const Home& home, int firstSeed) {
  Program witness(home, pellorCommand({"--domain", "org.example.editing", "watch"}));
  EXPECT_EQ(witness.readErrorLine(), "pellor: watching");
  const Writers writers(home, 3, 1'000'000, firstSeed);
  writers.tell("edit");
  for (int change = 0; change < 50; ++change) witness.readLine();
}

// Which of two edits at once wins is open; that all agree on it is not.
TEST(ManyWriters, LeaveAWholeListWhenTheyAreKilledAndAgreeOnTheStoredOneAtRest) {
  const Home home;
  addContacts(home);
  for (int round = 1; round <= 3; ++round) {
    editAndKill(home, 100 * round);
    expectSound(storedList(home));
  }
  const Writers writers(home, 4, 500, 1);
  writers.tell("edit");
  writers.expectFromAll("edited");

  std::vector<List> lists = writers.reports();
  const auto agree = [&] { return std::ranges::adjacent_find(lists, std::not_equal_to()) == lists.end(); };
  // News of the last writes may still be on its way.
  for (int round = 0; round < Rounds && !agree(); ++round) lists = writers.reports();

  for (const List& list : lists) EXPECT_EQ(list, lists.front());
  expectSound(lists.front());
  EXPECT_EQ(storedList(home), lists.front());
  EXPECT_EQ(writers.reports(), lists) << "the list was not at rest";
  writers.finish();
}

}  // namespace
}  // namespace pellor
