// Loading a stored list, from nothing to a manager that is ready.
#include <benchmark/benchmark.h>
#include <cbor.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bench/Friends.h"
#include "bench/Kept.h"
#include "bench/PhoneLibrary.h"
#include "bench/Stopwatch.h"
#include "bench/StoredList.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::bench {
namespace {

void load(benchmark::State& state) {
  auto& list = kept<StoredList>(static_cast<std::size_t>(state.range(0)));
  PhoneLibraryUse use;
  for (auto _ : state) {
    std::optional<ListProcess> process;
    time(state, [&] {
      process.emplace(list.folders());
      const auto scope = process->enter();
      process->load();
    });
    const auto scope = process->enter();
    require(process->manager().friendGroups().size() >= list.size() / 12, "the whole list");
  }
  state.counters["parses"] = static_cast<double>(use.parses());
  state.counters["starts"] = static_cast<double>(use.starts());
}
BENCHMARK(load)->Arg(240)->Iterations(20)->UseManualTime();
BENCHMARK(load)->Arg(24'000)->Iterations(1)->UseManualTime();
BENCHMARK(load)->Arg(240'000)->Iterations(1)->UseManualTime();

// The yardstick: the least work that gives these persons.

struct PlainPerson {
  std::int64_t recordID = 0;
  std::string guid, database, name, monogram;
  std::vector<std::string> destinations;
};

class PlainDecoder {
 public:
  explicit PlainDecoder(std::span<const std::uint8_t> input) : _input(input) {}

  std::vector<PlainPerson> list() {
    next();
    std::vector<PlainPerson> persons(_number);
    for (PlainPerson& person : persons) decode(person);
    return persons;
  }

 private:
  void decode(PlainPerson& person) {
    next();
    for (std::uint64_t left = _number; left > 0; --left) {
      next();
      const std::string_view key = _text;
      next();
      if (key == "ABRecordID") person.recordID = static_cast<std::int64_t>(_number);
      if (key == "ABRecordGUID") person.guid = _text;
      if (key == "ABDatabaseUID") person.database = _text;
      if (key == "Name") person.name = _text;
      if (key == "Monogram") person.monogram = _text;
      if (key == "AllValues") destinations(person);
    }
  }

  void destinations(PlainPerson& person) {
    person.destinations.resize(_number);
    for (std::string& destination : person.destinations) {
      next();
      destination = _text;
    }
  }

  void next() {
    const auto result = cbor_stream_decode(_input.data(), _input.size(), &callbacks(), this);
    require(result.status == CBOR_DECODER_FINISHED, "what was encoded");
    _input = _input.subspan(result.read);
  }

  template <class Number>
  static void number(void* self, Number number) {
    static_cast<PlainDecoder*>(self)->_number = number;
  }
  static void text(void* self, cbor_data bytes, std::size_t length) {
    const void* characters = bytes;
    static_cast<PlainDecoder*>(self)->_text = {static_cast<const char*>(characters), length};
  }
  static const cbor_callbacks& callbacks() {
    static const cbor_callbacks made = [] {
      cbor_callbacks result = cbor_empty_callbacks;
      result.uint8 = number<std::uint8_t>;
      result.uint16 = number<std::uint16_t>;
      result.uint32 = number<std::uint32_t>;
      result.uint64 = number<std::uint64_t>;
      result.array_start = number<std::size_t>;
      result.map_start = number<std::size_t>;
      result.string = text;
      return result;
    }();
    return made;
  }

  std::span<const std::uint8_t> _input;
  std::uint64_t _number = 0;
  std::string_view _text;
};

struct EncodedList {
  explicit EncodedList(std::size_t size) : bytes(encodeCBOR(storedList(0, size)).value()) {}
  const Data bytes;
};

void plainDecode(benchmark::State& state) {
  const Data& bytes = kept<EncodedList>(static_cast<std::size_t>(state.range(0))).bytes;
  for (auto _ : state) {
    // Their end is not timed: that of the list is not either.
    std::vector<PlainPerson> persons;
    time(state, [&] { persons = PlainDecoder(bytes).list(); });
    benchmark::DoNotOptimize(persons.data());
  }
}
BENCHMARK(plainDecode)->Arg(240)->Iterations(100)->UseManualTime();
BENCHMARK(plainDecode)->Arg(24'000)->Iterations(5)->UseManualTime();
BENCHMARK(plainDecode)->Arg(240'000)->Iterations(1)->UseManualTime();

}  // namespace
}  // namespace pellor::bench
