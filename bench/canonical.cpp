// The canonical form of a phone number.
#include <benchmark/benchmark.h>
#include <phonenumbers/phonenumberutil.h>

#include <optional>
#include <string>
#include <vector>

#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/Memo.h"
#include "bench/StoredList.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::bench {
namespace {

using i18n::phonenumbers::PhoneNumber;
using i18n::phonenumbers::PhoneNumberUtil;

/// A process of a user without friends.
struct Asker {
  explicit Asker(std::size_t size) : stored(size), process(stored.folders()) {}
  const StoredList stored;
  ListProcess process;
};

void canonicalFirstTime(benchmark::State& state) {
  auto& asker = kept<Asker>(0);
  const auto scope = asker.process.enter();
  static std::size_t number = 0;
  for (auto _ : state) benchmark::DoNotOptimize(plMessageCanonicalRawAddress(writtenPhoneNumber(++number)));
}
BENCHMARK(canonicalFirstTime)->MinTime(0.05);

void canonicalAgain(benchmark::State& state) {
  auto& asker = kept<Asker>(0);
  const auto scope = asker.process.enter();
  const std::vector<std::string> numbers = canonicalNumbers();
  for (const auto& number : numbers) require(plMessageCanonicalRawAddress(number) == number, "a canonical form");
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(plMessageCanonicalRawAddress(numbers[next]));
    if (++next == numbers.size()) next = 0;
  }
}
BENCHMARK(canonicalAgain)->MinTime(0.05);

// The yardsticks.

void parseAndFormat(benchmark::State& state) {
  const PhoneNumberUtil& library = *PhoneNumberUtil::GetInstance();
  std::size_t written = 0;
  for (auto _ : state) {
    PhoneNumber number;
    std::string text;
    require(library.Parse(writtenPhoneNumber(++written), "DE", &number) == PhoneNumberUtil::NO_PARSING_ERROR,
            "a number");
    library.Format(number, PhoneNumberUtil::E164, &text);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(parseAndFormat)->MinTime(0.05);

BENCHMARK(memoHit)->MinTime(0.05);

}  // namespace
}  // namespace pellor::bench
