#include "pellor/linux/preferences/StoredRuns.h"

#include <algorithm>
#include <random>
#include <typeinfo>
#include <utility>

#include "pellor/linux/preferences/internal/CBORValue.h"
#include "pellor/linux/preferences/internal/EncodedRun.h"

namespace pellor {
namespace {

bool isDictionary(const Value& value) { return value.kind() == Value::Kind::dictionary; }

bool isListOfDictionaries(const Value& value) {
  const Array* array = value.array();
  return array && !array->empty() && std::ranges::all_of(*array, isDictionary);
}

}  // namespace

std::optional<EncodedList> EncodedList::encode(const LongArray& array) {
  EncodedList list{array.runs(), array.size()};
  for (auto& pointer : list.runs) {
    const ArrayRun& run = *pointer;
    if (typeid(run) == typeid(EncodedRun)) continue;
    pointer = EncodedRun::encode(pointer);
    if (!pointer) return std::nullopt;
  }
  return list;
}

std::optional<EncodedValue> EncodedValue::encode(const Value& value) {
  EncodedValue encoded{value, std::nullopt, std::nullopt};
  const LongArray* longArray = value.longArray();
  if (longArray && longArray->size() > 0) {
    encoded.list = EncodedList::encode(*longArray);
  } else if (isListOfDictionaries(value)) {
    encoded.list = EncodedList::encode(LongArray(*value.array()));
  } else {
    encoded.bytes = encodeCBOR(value);
  }
  if (encoded.list || encoded.bytes) return encoded;
  return std::nullopt;
}

std::string EncodedValue::errorFor(std::string_view key) {
  return std::string(key) + " is nested too deeply or too long to be stored";
}

std::int64_t newListNumber() {
  std::random_device random;
  return std::uniform_int_distribution<std::int64_t>(1, HighestListNumber)(random);
}

std::span<const std::uint8_t> bytesOf(const ArrayRun& run) { return static_cast<const EncodedRun&>(run).bytes(); }

bool holds(const ArrayRun& run, std::span<const std::uint8_t> bytes) { return std::ranges::equal(bytesOf(run), bytes); }

bool areSame(const std::shared_ptr<const ArrayRun>& one, const std::shared_ptr<const ArrayRun>& other) {
  return one == other || holds(*one, bytesOf(*other));
}

const Runs& runsOf(const StoredList* list) {
  static const Runs none;
  return list ? list->value.longArray()->runs() : none;
}

std::size_t runCount(const StoredRuns& rows) {
  return (static_cast<std::size_t>(rows.count) + LongArray::RunSize - 1) / LongArray::RunSize;
}

bool areWhole(const Runs& runs, const StoredRuns& rows) {
  if (rows.count < 1 || runs.size() != runCount(rows)) return false;
  auto left = static_cast<std::size_t>(rows.count);
  for (const auto& run : runs) {
    if (!run || run->size() != std::min(left, LongArray::RunSize)) return false;
    left -= run->size();
  }
  return true;
}

std::shared_ptr<const StoredList> listOf(Runs runs, const StoredRuns& rows, std::int64_t revision) {
  if (!areWhole(runs, rows)) return nullptr;
  return std::make_shared<const StoredList>(StoredList{rows, revision, LongArray(std::move(runs))});
}

}  // namespace pellor
