// Finding contacts among many by what somebody types.
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "bench/Kept.h"
#include "bench/WorkFolder.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/Process.h"

namespace pellor::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t Contacts = 100'000;
constexpr std::size_t CardsInAFile = 1000;
constexpr std::size_t Limit = 20;
/// To be raised when the cards become other ones.
constexpr const char* Edition = "2";

// A number below `limit`; small ones are met more often, as some names are.
std::size_t chosen(std::size_t number, std::size_t salt, std::size_t limit) {
  std::mt19937_64 random(number * 64 + salt);
  const double part = std::uniform_real_distribution<double>()(random);
  return static_cast<std::size_t>(part * part * static_cast<double>(limit));
}

/// A name of syllables, another one for each number below 4096.
std::string nameOf(std::size_t number, const char* ending) {
  constexpr std::array syllables = {"ba", "rö",  "mi",  "ko", "le", "sta", "ne",  "vi",
                                    "du", "gar", "hel", "jo", "ü",  "zé",  "pal", "tor"};
  std::string name = syllables[number % 16];
  name += syllables[number / 16 % 16];
  name += syllables[number / 256 % 16];
  name += ending;
  const char first = name.front();
  if (first >= 'a' && first <= 'z') name.front() = static_cast<char>(first - 'a' + 'A');
  return name;
}

std::string givenName(std::size_t number) { return nameOf(chosen(number, 1, 500), "a"); }
std::string surname(std::size_t number) { return nameOf(chosen(number, 2, 2000), "sen"); }
std::string guidOf(std::size_t number) { return "urn:uuid:contact-" + std::to_string(number); }

std::string cardOf(std::size_t number) {
  const std::string digits = std::to_string(10'000'000 + number * 89);
  return "BEGIN:VCARD\nVERSION:4.0\nUID:" + guidOf(number) + "\nN:" + surname(number) + ";" + givenName(number) +
         ";;;\nFN:" + givenName(number) + " " + surname(number) + "\nORG:Works " + std::to_string(number % 300) +
         "\nTEL:+49151" + digits + "\nEMAIL:c" + std::to_string(number) + "@mail.example.org\nEND:VCARD\n";
}

/// A user with 100,000 contacts, which are kept for the next run.
class UserWithContacts {
 public:
  explicit UserWithContacts(std::size_t) {
    if (!fs::exists(_home / "contacts-are-complete")) write();
    const Process::Scope scope(_process);
    LinuxPlatformOptions options;
    options.folders = foldersOf(_home);
    options.region = "DE";
    options.noticesChanges = false;
    _platform.emplace(_process, options);
    const auto all = platformOf(_process).addressBook;
    all->performWithAddressBook([](AddressBook& book) { require(book.isReadable(), "contacts that can be read"); });
  }

  Process::Scope enter() { return Process::Scope(_process); }
  const Platform& platform() { return platformOf(_process); }

 private:
  void write() const {
    std::cerr << "making " << Contacts << " contacts in " << _home << '\n';
    fs::remove_all(_home);
    const fs::path folder = foldersOf(_home).data / "contacts";
    fs::create_directories(folder);
    for (std::size_t first = 0; first < Contacts; first += CardsInAFile) {
      std::ofstream file(folder / (std::to_string(first) + ".vcf"));
      for (std::size_t number = first; number < first + CardsInAFile; ++number) file << cardOf(number);
    }
    std::ofstream(_home / "contacts-are-complete").flush();
  }

  const fs::path _home = lastingFolder("searched-contacts") / Edition;
  Process _process;
  std::optional<LinuxPlatform> _platform;
};

/// Times `ask` with one contact after the other, which stand far apart in the index.
template <class Ask>
void askInTurn(benchmark::State& state, Ask ask) {
  auto& user = kept<UserWithContacts>(0);
  const auto scope = user.enter();
  std::size_t number = 0;
  for (auto _ : state) {
    ask(user.platform(), number);
    number = (number + 7919) % Contacts;
  }
}

void find(benchmark::State& state, const std::function<std::string(std::size_t)>& textFor) {
  std::size_t found = 0;
  askInTurn(state, [&](const Platform& platform, std::size_t number) {
    const auto people = platform.contactSearch->find(textFor(number), Limit);
    require(!people.empty(), "the person that was looked for");
    found += people.size();
  });
  state.counters["found"] = benchmark::Counter(static_cast<double>(found), benchmark::Counter::kAvgIterations);
}

/// The first letters, whole ones.
std::string beginningOf(const std::string& name, std::size_t letters) {
  std::size_t end = 0;
  for (; end < name.size(); ++end) {
    const bool beginsLetter = (static_cast<unsigned char>(name[end]) & 0xC0U) != 0x80U;
    if (beginsLetter && letters-- == 0) break;
  }
  return name.substr(0, end);
}
std::string lastDigits(std::size_t number) {
  const std::string digits = std::to_string(10'000'000 + number * 89);
  return digits.substr(digits.size() - 5);
}

// The yardstick.
void contactByGUID(benchmark::State& state) {
  askInTurn(state, [](const Platform& platform, std::size_t number) {
    platform.addressBook->performWithAddressBook([&](AddressBook& book) {
      require(book.copyPersonMatchingGUID(guidOf(number)) != nullptr, "the person that was looked for");
    });
  });
}
BENCHMARK(contactByGUID)->MinTime(0.1);

BENCHMARK_CAPTURE(find, surname, surname)->Name("findSurname")->MinTime(0.1);
BENCHMARK_CAPTURE(find, beginning, [](std::size_t number) { return beginningOf(surname(number), 2); })
    ->Name("findBeginning")
    ->MinTime(0.1);
BENCHMARK_CAPTURE(find, everybodys, [](std::size_t) { return std::string("example"); })
    ->Name("findEverybodysWord")
    ->MinTime(0.1);
BENCHMARK_CAPTURE(find, rare, [](std::size_t number) { return "c" + std::to_string(number); })
    ->Name("findRareWord")
    ->MinTime(0.1);
BENCHMARK_CAPTURE(find, two, [](std::size_t number) { return givenName(number) + " " + surname(number); })
    ->Name("findTwoWords")
    ->MinTime(0.1);
BENCHMARK_CAPTURE(find, beginnings,
                  [](std::size_t number) {
                    return beginningOf(givenName(number), 3) + " " + beginningOf(surname(number), 2);
                  })
    ->Name("findTwoBeginnings")
    ->MinTime(0.1);
BENCHMARK_CAPTURE(find, number, [](std::size_t number) { return "0151 1" + std::to_string(number % 8); })
    ->Name("findNumber")
    ->MinTime(0.1);
BENCHMARK_CAPTURE(find, ending, lastDigits)->Name("findEnding")->MinTime(0.1);

void findSimilar(benchmark::State& state) {
  askInTurn(state, [](const Platform& platform, std::size_t number) {
    std::string mistyped = surname(number);
    std::swap(mistyped[mistyped.size() - 2], mistyped[mistyped.size() - 3]);
    benchmark::DoNotOptimize(platform.contactSearch->findSimilar(mistyped, Limit));
  });
}
BENCHMARK(findSimilar)->MinTime(0.1);

}  // namespace
}  // namespace pellor::bench
