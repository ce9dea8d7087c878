#include "pellor/runtime/Log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pellor/runtime/internal/FunctionName.h"

namespace pellor {
namespace {

struct Collector : LogSink {
  void write(const LogEntry& entry) override { entries.push_back(entry); }
  bool isHeard() const override { return hears; }
  bool hears = true;
  std::vector<LogEntry> entries;
};

class LogTest : public testing::Test {
 protected:
  std::shared_ptr<Collector> sink = std::make_shared<Collector>();
  LogHandle handle{"org.example", "main", sink};
};

TEST_F(LogTest, FillsThePlaceholdersInOrder) {
  handle.log("plain");
  sink->hears = false;
  handle.log("to nobody");
  sink->hears = true;
  handle.log("100% of %@, %d of %lu and %tu: %u%%", std::optional<std::string>("all"), -3, 4UL, 5, 6U);
  handle.log("%@%@", std::optional<std::string>(), std::set<std::string>{"b", "a"});
  const Value value =
      Array{1, "", "x", Dictionary{{"d", Data{0, 255}}, {"k", true}, {"l", -1.5}, {"t", Date{7e8 + 0.5}}}};
  handle.log("[%@] [%@]", value, std::set<std::string>());
  std::vector<std::string> messages;
  for (const auto& entry : sink->entries) messages.push_back(entry.messageText());
  EXPECT_EQ(messages, (std::vector<std::string>{"plain", "100% of all, -3 of 4 and 5: 6%%", "(null){a, b}",
                                                "[(1, , x, {d = <00ff>, k = true, l = -1.5, t = 700000000.5})] [{}]"}));
}

TEST_F(LogTest, HidesWhatIsPrivateFromOthers) {
  const int line = __LINE__ + 1;
  handle.log("renamed %@ to [%@]", 7, redactable("Ada %@"));
  const LogEntry& entry = sink->entries.at(0);
  EXPECT_EQ(entry.text(), "TestBody (" + std::to_string(line) + ") \"renamed 7 to [Ada %@]\"");
  EXPECT_EQ(entry.messageText(LogEntry::Private::hidden), "renamed 7 to [<private>]");
}

TEST(FunctionNameTest, UnderstandsTheSpellingsOfCompilersAndLeavesOthersWhole) {
  const std::pair<std::string, std::string> table[] = {
      {"main", "auto main()::(anonymous class)::operator()(int) const"},
      {"find", "std::vector<std::pair<int, int> > ns::{anonymous}::find(const std::map<int, std::string>&)"},
      {"reload", "decltype (sizeof... (T)) ns::A::reload(T ...) [with T = {int, double}]"},
      {"operator->*", "void ns::A::operator->*(T) [with T = int]"},
      {"operator bool", "bool ns::A::operator bool()"},
      {"operator()", "void ns::A::operator()(int) const"},
      {"operator<=>", "operator<=>"},
      {"~A", "ns::A::~A()"},
      {"find", "auto ns::A::find(int) const -> std::string"},
      {"find", "void ns::find(T) requires  std::integral<T> [with T = int]"},
      {"find", "class std::vector<int> __cdecl ns::`anonymous-namespace'::find(const class std::map<int,int> &)"},
      {"main", "auto __cdecl main::<lambda_1>::operator ()(void) const"},
      {"operator ()", "void __cdecl ns::A::operator ()(int) const"},
      {"reload", "reload"},
      {"-[List reload:]", "-[List reload:]"},
      {"{anonymous}::<lambda()>", "{anonymous}::<lambda()>"},
      {"", ""},
  };
  for (const auto& [name, signature] : table) EXPECT_EQ(functionName(signature), name) << signature;
}

TEST(LogDeathTest, AnArgumentForEachPlaceholder) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const LogHandle handle("s", "c", std::make_shared<Collector>());
  EXPECT_DEATH(handle.log("%@ %d", 1), "expected an argument for each placeholder of the log text %@ %d");
  EXPECT_DEATH(handle.log("%@", 1, 2), "expected a placeholder for each argument");
}

}  // namespace
}  // namespace pellor
