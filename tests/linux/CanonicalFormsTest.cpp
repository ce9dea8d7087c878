// Canonical forms in memory and beside the store.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/phone/CanonicalFormStore.h"
#include "pellor/linux/phone/CanonicalForms.h"
#include "pellor/linux/phone/ComparableNumber.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/testing/LogCollector.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

TEST(CanonicalFormsTest, AreThoseOfAMapWhileTheyGrow) {
  CanonicalForms forms;
  std::map<std::string, std::string> expected;
  std::mt19937 random(1);
  const auto word = [&] { return std::string(random() % 3, 'a') + std::to_string(random() % 20000); };
  const std::jthread reader([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) ASSERT_EQ(forms.find("12345").value_or("12345"), "12345");
  });
  for (int count = 0; count < 20000; ++count) {
    // Long ones too, so that there are many blocks, with ends of every length.
    const std::string text = random() % 4 ? word() : std::string(random() % 300, 'x') + word();
    const std::string form = random() % 4 ? text : "f" + word();
    const bool isKept = text.size() <= CanonicalForms::LongestText && !expected.contains(text);
    ASSERT_EQ(forms.add(text, form), isKept) << text;
    if (isKept) expected.emplace(text, form);
    if (isKept) expected.emplace(form, form);
  }
  EXPECT_EQ(forms.size(), expected.size());
  for (const auto& [text, form] : expected) EXPECT_EQ(forms.find(text), form);
  for (const char* unknown : {"", "y", "20000", "no such text"}) EXPECT_EQ(forms.find(unknown), std::nullopt);
}

/// A folder that services of one process after the other keep their forms in.
struct KeptFormsTest : testing::Test {
  TemporaryFolder folder;
  std::filesystem::path file = folder / "canonical-forms-DE";
  std::shared_ptr<LogCollector> log = std::make_shared<LogCollector>();
  std::string region = "DE";

  std::unique_ptr<IdentityService> startIn(const std::filesystem::path& place) const {
    return std::make_unique<IdentityService>(
        [this]() -> const std::string& { return region; },
        CanonicalFormFolder{place, LogHandle("test", "numbers", log), [](const Task& task) { task(); }});
  }
  /// Has those numbers converted by a new process; how often it called the phone library.
  std::uint64_t convert(const std::vector<std::string>& numbers) const {
    const auto service = startIn(folder.path());
    const std::uint64_t before = phoneLibraryCalls();
    std::vector<std::string> forms;
    for (const std::string& number : numbers) forms.push_back(service->comparableNumber(number).value_or("none"));
    const std::uint64_t calls = phoneLibraryCalls() - before;
    for (std::size_t index = 0; index < numbers.size(); ++index) {
      EXPECT_EQ(forms[index], comparableNumber(numbers[index], region));
    }
    return calls;
  }
};

TEST_F(KeptFormsTest, SpareLaterProcessesThePhoneLibrary) {
  const std::vector<std::string> numbers = {"030 1234567",   "+49301234567",      "911",
                                            "5 dogs",        "(030) 1234567 x 5", "\xD9\xA3\xD9\xA0 1234567",
                                            "+49 30 1234568"};
  EXPECT_GT(convert(numbers), 0U);
  EXPECT_EQ(convert(numbers), 0U);
  EXPECT_EQ(convert({"+49301234568", "+49301234567;ext=5"}), 0U) << "the forms themselves";
  EXPECT_EQ(modeOf(file), 0600U);

  const std::string kept = contentOf(file);
  EXPECT_GT(convert({"ann5@example.org", "a\n5", std::string(300, '5'), "no digit"}), 0U);
  EXPECT_EQ(contentOf(file), kept) << "neither addresses nor what is no line";

  region = "US";
  EXPECT_GT(convert(numbers), 0U) << "in another region it is another number";
  EXPECT_EQ(convert(numbers), 0U);
}

TEST_F(KeptFormsTest, AreNotTakenFromAFileThatIsDamagedOrForeign) {
  const std::vector<std::string> numbers = {"030 1234561", "030 1234562", "+49301234563"};
  enum Used { all, allButOne, none };
  const struct {
    const char* what;
    std::function<std::string(std::string)> change;
    Used used;
  } cases[] = {
      {"an earlier version", [](std::string text) { return text.replace(text.find(" DE ") - 1, 1, "1"); }, none},
      {"another library", [](std::string text) { return text.insert(text.find('\n'), "9"); }, none},
      {"torn", [](std::string text) { return text.erase(text.size() - 2); }, allButOne},
      {"another form", [](std::string text) { return text.replace(text.find("\t+49301234562") + 12, 1, "7"); },
       allButOne},
      {"a foreign line", [](std::string text) { return text.insert(text.find('\n') + 1, "030 1234561\t1\n\n\t\n"); },
       all},
      {"too large", [](std::string text) { return text.append(CanonicalFormStore::LargestFile, '\n'); }, none},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    std::filesystem::remove(file);
    convert(numbers);
    writeFile(file, test.change(contentOf(file)));
    EXPECT_EQ(convert(numbers) == 0, test.used == all);
    EXPECT_EQ(convert({numbers.front()}), 0U);
    EXPECT_EQ(convert(numbers), 0U) << "what was missing was written again";
    EXPECT_LE(std::filesystem::file_size(file), 1000U);
  }
  std::filesystem::permissions(file, std::filesystem::perms::others_write, std::filesystem::perm_options::add);
  EXPECT_GT(convert(numbers), 0U) << "others could have written it";
  EXPECT_EQ(modeOf(file), 0600U);
}

}  // namespace
}  // namespace pellor
