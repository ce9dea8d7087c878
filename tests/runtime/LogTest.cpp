#include "runtime/Log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/FunctionName.h"

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

TEST_F(LogTest, fillsThePlaceholdersInOrder) {
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

TEST_F(LogTest, hidesWhatIsPrivateFromOthers) {
  const int line = __LINE__ + 1;
  handle.log("renamed %@ to [%@]", 7, redactable("Ada %@"));
  const LogEntry& entry = sink->entries.at(0);
  EXPECT_EQ(entry.text(), "TestBody (" + std::to_string(line) + ") \"renamed 7 to [Ada %@]\"");
  EXPECT_EQ(entry.messageText(LogEntry::Private::hidden), "renamed 7 to [<private>]");
}

TEST(FunctionNameTest, understandsTheSpellingsOfBothCompilers) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> table{
      {"main", {"int main()", "main()::<lambda(int)>", "auto main()::(anonymous class)::operator()(int) const"}},
      {"find",
       {"std::vector<std::pair<int, int> > ns::{anonymous}::find(const std::map<int, std::__cxx11::basic_string<char> "
        ">&)",
        "std::vector<std::pair<int, int>> ns::(anonymous namespace)::find(const std::map<int, std::string> &)",
        "int* find(const char (&)[4])", "static std::shared_ptr<A> ns::A::find(const std::function<void (int)> &)"}},
      {"save",
       {"ns::A::save(const std::function<void(int)>&) const::<lambda()>::<lambda()> mutable",
        "auto ns::A::save()::(anonymous class)::operator()()::(anonymous class)::operator()(int) const",
        "auto main()::In::save()::(anonymous class)::operator()() const"}},
      {"reload",
       {"T ns::A::reload(T) [T = std::basic_string<char>]",
        "ns::A::reload<double>(double)::<lambda(auto:11)> [with auto:11 = int]",
        "void ns::B<T>::C::reload() [with T = int]", "ns::B<std::vector<int> >::reload(std::vector<int>)::<lambda()>",
        "decltype (sizeof... (T)) ns::A::reload(T ...) [with T = {int, double}; decltype (sizeof... (T)) = long int]",
        "unsigned long ns::A::reload(T...) [T = <int, double>]"}},
      {"~B", {"ns::B<T>::~B() [with T = std::vector<int>]", "ns::A::~B()"}},
      {"operator==", {"bool ns::A::operator==(int)", "ns::A::operator==(int)::<lambda()>"}},
      {"operator->*", {"void ns::A::operator->*(T) [with T = int]"}},
      {"operator()",
       {"ns::A::operator()(int)::<lambda()>", "<lambda()>", "auto (anonymous class)::operator()() const"}},
      {"operator bool", {"bool ns::A::operator bool()"}},
      {"operatorName", {"void ns::operatorName(std::string_view)"}},
      {"", {""}},
  };
  for (const auto& [name, signatures] : table) {
    for (const auto& signature : signatures) EXPECT_EQ(functionName(signature), name) << signature;
  }
}

TEST(LogDeathTest, anArgumentForEachPlaceholder) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const LogHandle handle("s", "c", std::make_shared<Collector>());
  EXPECT_DEATH(handle.log("%@ %d", 1), "expected an argument for each placeholder of the log text %@ %d");
  EXPECT_DEATH(handle.log("%@", 1, 2), "expected a placeholder for each argument");
}

}  // namespace
}  // namespace pellor
