// What grows with the length of one text, or with the number of things in one request.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench/ChildProgram.h"
#include "bench/Kept.h"
#include "bench/Stopwatch.h"
#include "bench/WorkFolder.h"
#include "pellor/linux/contacts/internal/EVCardContact.h"
#include "pellor/linux/reachability/IdentityService.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::bench {
namespace {

namespace fs = std::filesystem;

std::string times(std::int64_t count, std::string_view text) {
  std::string result;
  for (std::int64_t index = 0; index < count; ++index) result += text;
  return result;
}

void timeCard(benchmark::State& state, const std::string& lines) {
  const std::string text = "BEGIN:VCARD\r\nVERSION:3.0\r\nTEL:+4930123456\r\n" + lines + "\r\nEND:VCARD\r\n";
  for (auto _ : state) require(readContactCard(text).card.has_value(), "a card");
}

void cardName(benchmark::State& state) { timeCard(state, "FN:" + times(state.range(0), "x")); }
void cardMarks(benchmark::State& state) { timeCard(state, "FN:x" + times(state.range(0), "\u0301")); }
void cardFolds(benchmark::State& state) { timeCard(state, "FN:" + times(state.range(0), "x\r\n ")); }
void cardSoftBreaks(benchmark::State& state) {
  timeCard(state, "FN;ENCODING=QUOTED-PRINTABLE:" + times(state.range(0), "=41=\r\n"));
}
void cardParts(benchmark::State& state) { timeCard(state, "ADR:" + times(state.range(0), ";")); }
void cardLabels(benchmark::State& state) {
  timeCard(state, "TEL;TYPE=" + times(state.range(0), "a,") + "b:+4930123457");
}
void cardNumbers(benchmark::State& state) { timeCard(state, times(state.range(0), "TEL:+4930123456\r\n") + "FN:x"); }
void terminalLine(benchmark::State& state) {
  const std::string text = times(state.range(0), "א\u200D🌻");
  for (auto _ : state) benchmark::DoNotOptimize(terminalText(isolatedText(text)));
}
void canonicalForm(benchmark::State& state) {
  const std::string region = "DE";
  IdentityService service([&]() -> const std::string& { return region; });
  const std::string number = times(state.range(0), "7");
  for (auto _ : state) benchmark::DoNotOptimize(service.comparableNumber(number));
}

void textSizes(benchmark::internal::Benchmark* measured) { measured->Arg(62'500)->Arg(250'000)->Arg(1'000'000); }
BENCHMARK(cardName)->Apply(textSizes);
BENCHMARK(cardMarks)->Apply(textSizes);
BENCHMARK(cardFolds)->Apply(textSizes);
BENCHMARK(cardSoftBreaks)->Apply(textSizes);
BENCHMARK(cardParts)->Apply(textSizes);
BENCHMARK(cardLabels)->Apply(textSizes);
BENCHMARK(cardNumbers)->Apply(textSizes);
BENCHMARK(terminalLine)->Apply(textSizes);
BENCHMARK(canonicalForm)->Apply(textSizes);

/// A user with as many contacts, an index of them, and room for all of them as friends.
class UserWithRoom {
 public:
  explicit UserWithRoom(std::size_t contacts) : _count(contacts) {
    fs::create_directories(_folder.path() / "contacts");
    for (std::size_t number = 0; number < contacts; ++number) writeCard(number);
    run(command(_folder.path() / "made", {"settings", "max-pages", "20000"}));
    run(command(_folder.path() / "made", {"contacts"}));
  }

  /// The seconds that it takes for a user without friends.
  double add(const std::function<std::string(std::size_t)>& who) const {
    const fs::path data = _folder.path() / "data";
    fs::remove_all(data);
    fs::copy(_folder.path() / "made", data, fs::copy_options::recursive);
    std::vector<std::string> arguments = {"add"};
    for (std::size_t number = 0; number < _count; ++number) arguments.push_back(who(number));
    const Stopwatch stopwatch;
    run(command(data, arguments));
    return stopwatch.seconds();
  }

  static std::string digits(std::size_t number) { return std::to_string(1'000'000 + number); }

 private:
  void writeCard(std::size_t number) const {
    std::ofstream(_folder.path() / "contacts" / (digits(number) + ".vcf"))
        << "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Lee" << digits(number) << "x;Ann;;;\r\nTEL:+4930" << digits(number)
        << "\r\nEND:VCARD\r\n";
  }

  std::vector<std::string> command(const fs::path& data, const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {PELLOR_PROGRAM, "--data", data.string(), "--contacts",
                                    (_folder.path() / "contacts").string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }

  const std::size_t _count;
  const WorkFolder _folder;
};

void timeAdd(benchmark::State& state, const std::function<std::string(std::size_t)>& who) {
  const auto& user = kept<UserWithRoom>(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) state.SetIterationTime(user.add(who));
}

void addNames(benchmark::State& state) {
  timeAdd(state, [](std::size_t number) { return "Lee" + UserWithRoom::digits(number) + "x, Ann"; });
}
void addBeginnings(benchmark::State& state) {
  timeAdd(state, [](std::size_t number) { return "Lee" + UserWithRoom::digits(number); });
}
void addNumbers(benchmark::State& state) {
  timeAdd(state, [](std::size_t number) { return "+4989" + UserWithRoom::digits(number); });
}

void requestSizes(benchmark::internal::Benchmark* measured) {
  measured->Arg(3'750)->Arg(15'000)->Arg(60'000)->Iterations(1)->UseManualTime();
}
BENCHMARK(addNames)->Apply(requestSizes);
BENCHMARK(addBeginnings)->Apply(requestSizes);
BENCHMARK(addNumbers)->Apply(requestSizes);

}  // namespace
}  // namespace pellor::bench
