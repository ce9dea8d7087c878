// Versioned writes of several keys, and what comes of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "pellor/platform/PreferencesStore.h"

namespace pellor {

/// One write to a store that has the keys "1" and "2", and not "none".
struct WriteCase {
  /// The version that a change is made from: any, the stored one, an earlier one of "2", that of an absent key, or the
  /// stored one but of another store.
  enum From { any, stored, old, absence, otherStore };
  struct Step {
    const char* key;
    PreferenceChange::Kind kind;
    From from;
  };

  const char* name;
  std::vector<Step> steps;
  PreferenceWriteOutcome outcome;
};

inline std::vector<WriteCase> writeCases() {
  using enum PreferenceChange::Kind;
  using enum WriteCase::From;
  using Outcome = PreferenceWriteOutcome;
  return {
      {"all right", {{"1", set, stored}, {"2", remove, stored}, {"none", set, stored}}, Outcome::written},
      {"one is old", {{"1", set, stored}, {"2", set, old}}, Outcome::overtaken},
      {"removal of an old one", {{"none", set, any}, {"1", remove, any}, {"2", remove, old}}, Outcome::overtaken},
      {"removal of none", {{"none", remove, stored}}, Outcome::written},
      {"made anew though there is one", {{"1", set, absence}, {"none", set, absence}}, Outcome::overtaken},
      {"depends on one", {{"1", set, any}, {"2", keep, stored}}, Outcome::written},
      {"depends on an old one", {{"1", set, any}, {"2", keep, old}}, Outcome::overtaken},
      {"depends on absence", {{"1", remove, any}, {"none", keep, absence}}, Outcome::written},
      {"depends on absence in vain", {{"1", set, any}, {"2", keep, absence}}, Outcome::overtaken},
      {"depends on presence in vain", {{"1", set, any}, {"none", keep, old}}, Outcome::overtaken},
      {"keeps any", {{"1", set, any}, {"2", keep, any}, {"none", keep, any}}, Outcome::written},
      {"changes nothing", {{"2", keep, stored}}, Outcome::written},
      {"changes nothing of an old one", {{"2", keep, old}}, Outcome::overtaken},
      {"another store's", {{"1", set, otherStore}}, Outcome::overtaken},
      {"absence in another store", {{"none", set, otherStore}}, Outcome::overtaken},
  };
}

/// What the case writes when the store has what was read `before`.
inline PreferenceChanges changesOf(const WriteCase& write, const VersionedPreferences& before,
                                   const PreferenceVersion& old) {
  using Kind = PreferenceChange::Kind;
  PreferenceChanges changes;
  for (const auto& [key, kind, from] : write.steps) {
    PreferenceChange& change = changes[key];
    change = {kind, kind == Kind::set ? std::optional<Value>("new") : std::nullopt, before.at(key).version};
    if (from == WriteCase::any) change.madeFrom.reset();
    if (from == WriteCase::old) change.madeFrom = old;
    if (from == WriteCase::absence) change.madeFrom = before.at("none").version;
    if (from == WriteCase::otherStore) change.madeFrom->store ^= 2;
  }
  return changes;
}

inline bool changesKey(const PreferenceChanges& changes, const std::string& key) {
  const auto found = changes.find(key);
  return found != changes.end() && found->second.kind != PreferenceChange::Kind::keep;
}

}  // namespace pellor
