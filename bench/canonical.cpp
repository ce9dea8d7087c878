// The canonical form of a phone number.
#include <benchmark/benchmark.h>
#include <phonenumbers/phonenumberutil.h>

#include <optional>
#include <string>

#include "Pellor/PLDestination.h"
#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/Memo.h"
#include "bench/StoredList.h"
#include "runtime/Fatal.h"

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
  const std::string text = personAt(0).phones.front();
  require(plMessageCanonicalRawAddress(text) == text, "a number in canonical form");
  for (auto _ : state) benchmark::DoNotOptimize(plMessageCanonicalRawAddress(text));
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

void memoHit(benchmark::State& state) { timeMemoHits(state); }
BENCHMARK(memoHit)->MinTime(0.05);

}  // namespace
}  // namespace pellor::bench
