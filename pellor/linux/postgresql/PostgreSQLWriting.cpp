#include "pellor/linux/postgresql/PostgreSQLWriting.h"

#include <string_view>
#include <utility>

#include "pellor/linux/postgresql/PostgreSQLConnection.h"

namespace pellor {
namespace {

EncodedValue encoded(std::string_view key, const Value& value) {
  if (auto result = EncodedValue::encode(value)) return *std::move(result);
  throw PostgreSQLError(PostgreSQLError::Kind::refused, {EncodedValue::errorFor(key), "make it smaller"});
}

}  // namespace

PostgreSQLWriting writingOf(const PreferencesMemory::PendingValues& values) {
  PostgreSQLWriting writing;
  for (const auto& [key, pending] : values) {
    auto& value = writing.changes[key];
    if (pending.value) value = encoded(key, *pending.value);
  }
  return writing;
}

PostgreSQLWriting writingOf(const Dictionary& values) {
  PostgreSQLWriting writing{PostgreSQLWriting::Which::absent};
  for (const auto& [key, value] : values) writing.changes.emplace(key, encoded(key, value));
  return writing;
}

PostgreSQLWriting writingOf(const PreferenceChanges& changes, PreferenceWriteID id) {
  PostgreSQLWriting writing{PostgreSQLWriting::Which::all, id};
  for (const auto& [key, change] : changes) {
    if (change.madeFrom) writing.madeFrom.emplace(key, *change.madeFrom);
    if (change.kind == PreferenceChange::Kind::keep) continue;
    auto& value = writing.changes[key];
    if (change.value) value = encoded(key, *change.value);
  }
  return writing;
}

}  // namespace pellor
