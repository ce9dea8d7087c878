// What is kept of a directory's answers.
#include "pellor/linux/reachability/AnswerMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/testing/LogCollector.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using ::testing::SizeIs;
using enum DestinationStatus;

StatusAnswer answer(DestinationStatus status, double time) { return {status, time, "", std::nullopt}; }

class AnswerMemoryTest : public testing::Test {
 protected:
  AnswerMemory memory(const std::string& account = "Ada's") const {
    return {{folder.path(), account}, [] { return 10'000.0; }, LogHandle("test", "reach", log)};
  }
  void keep(const AnswerMemory::Answers& answers) const {
    AnswerMemory written = memory();
    written.add(answers);
    EXPECT_TRUE(written.write());
  }
  std::optional<StatusAnswer> kept(const std::string& identifier) const { return memory().find(identifier); }
  fs::path file() const { return folder / ("reachable-" + fileNameOf("Ada's")); }

  const TemporaryFolder folder;
  const std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
};

TEST_F(AnswerMemoryTest, TheNewestAnswerCountsNotTheLastWrite) {
  keep({{"tel:1", answer(valid, 100)}, {"tel:2", {invalid, 100.25, "", 60}}});
  AnswerMemory late = memory();
  late.add({{"tel:1", answer(invalid, 50)}, {"tel:2", answer(valid, 200)}});
  keep({{"tel:3 x", answer(valid, 300)}});
  EXPECT_TRUE(late.write()) << "after the others, of older answers as well";
  EXPECT_FALSE(late.write()) << "there is no more";
  EXPECT_EQ(kept("tel:1"), answer(valid, 100));
  EXPECT_EQ(kept("tel:2"), answer(valid, 200));
  EXPECT_EQ(kept("tel:3 x"), answer(valid, 300));
  EXPECT_EQ(late.find("tel:3 x"), answer(valid, 300)) << "it has seen them while it wrote";
  keep({{"tel:2", {invalid, 300, "", 60.5}}});
  EXPECT_EQ(kept("tel:2"), (StatusAnswer{invalid, 300, "", 60}));
  EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(AnswerMemoryTest, WhatIsNoAnswerOfThisAccountAtATimeThatHasBeenIsNotTaken) {
  keep({{"tel:1", answer(valid, 100)},
        {"tel:2", answer(unknown, 100)},
        {"tel:3", answer(unspecified, 100)},
        {"tel:\n4", answer(valid, 100)},
        {"tel:5", answer(valid, 20'000)}});
  EXPECT_EQ(kept("tel:1"), answer(valid, 100));
  for (const char* identifier : {"tel:2", "tel:3", "tel:\n4"}) EXPECT_EQ(kept(identifier), std::nullopt) << identifier;
  EXPECT_EQ(kept("tel:5"), std::nullopt) << "a clock was wrong";
  EXPECT_EQ(memory("Bob's").find("tel:1"), std::nullopt);
  fs::copy_file(file(), folder / ("reachable-" + fileNameOf("Bob's")));
  EXPECT_EQ(memory("Bob's").find("tel:1"), std::nullopt) << "a file under another name";
}

TEST_F(AnswerMemoryTest, EveryDamageIsNoticedAndGoneWithTheNextWrite) {
  const AnswerMemory::Answers answers = {{"tel:+49301234567", answer(valid, 100)}, {"tel:2", answer(invalid, 100)}};
  keep(answers);
  const std::string whole = contentOf(file());
  std::vector<std::string> contents = {"", "\n", "no answers", whole + "x", whole + whole, std::string(1 << 20, '\n')};
  for (std::size_t place = 0; place < whole.size(); ++place) {
    contents.push_back(whole.substr(0, place));
    contents.push_back(whole);
    contents.back()[place] = static_cast<char>(whole[place] ^ 1);
  }
  for (const std::string& content : contents) {
    replacePrivateFile(file(), content);
    EXPECT_EQ(kept("tel:+49301234567"), std::nullopt) << content.substr(0, 200);
    EXPECT_EQ(kept("tel:2"), std::nullopt) << content.substr(0, 200);
  }
  keep({{"tel:3", answer(valid, 300)}});
  EXPECT_EQ(kept("tel:3"), answer(valid, 300));
}

TEST_F(AnswerMemoryTest, WhatCannotBeWrittenIsKnownHereAndWrittenLater) {
  fs::create_directory(file());
  AnswerMemory written = memory();
  for (const double time : {100.0, 200.0}) {
    written.add({{"tel:1", answer(valid, time)}});
    EXPECT_FALSE(written.write());
    EXPECT_EQ(written.find("tel:1"), answer(valid, time));
  }
  EXPECT_THAT(log->messages(), SizeIs(1)) << "it is said once";
  fs::remove(file());
  EXPECT_TRUE(written.write());
  EXPECT_EQ(kept("tel:1"), answer(valid, 200));
}

}  // namespace
}  // namespace pellor
