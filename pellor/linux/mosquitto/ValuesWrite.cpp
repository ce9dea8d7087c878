#include "pellor/linux/mosquitto/ValuesWrite.h"

#include <utility>
#include <vector>

namespace pellor {
namespace {

WrittenValues writtenBefore(const VersionedPreferences& stored, PreferenceWriteID id, Dictionary values) {
  WrittenValues written{PreferenceWriteOutcome::written, std::move(values), {}};
  for (const auto& [key, preference] : stored) {
    if (preference.version.write == id) written.changed.insert(key);
  }
  return written;
}

PreferenceChange changeTo(const Value* value, const VersionedPreference& stored) {
  PreferenceChange change;
  change.madeFrom = stored.version;
  if (value ? stored.value == *value : !stored.value) return change;
  change.kind = value ? PreferenceChange::Kind::set : PreferenceChange::Kind::remove;
  if (value) change.value = *value;
  return change;
}

}  // namespace

WrittenValues writeValues(PreferencesStore& store, const std::string& domain, const std::set<std::string>& keys,
                          PreferenceWriteID id, const std::function<Dictionary(const Dictionary& stored)>& make) {
  const std::vector<std::string> names(keys.begin(), keys.end());
  const auto answer = store.read(names, domain);
  if (!answer.isReadable()) return {};
  const VersionedPreferences& stored = *answer.value();
  Dictionary values;
  for (const auto& [key, preference] : stored) {
    if (preference.value) values.emplace(key, *preference.value);
  }
  WrittenValues before = writtenBefore(stored, id, values);
  if (!before.changed.empty()) return before;

  WrittenValues written{PreferenceWriteOutcome::written, make(values), {}};
  PreferenceChanges changes;
  for (const std::string& key : names) {
    const auto known = stored.find(key);
    PreferenceChange change =
        changeTo(valueForKey(written.values, key), known == stored.end() ? VersionedPreference() : known->second);
    if (change.kind != PreferenceChange::Kind::keep) written.changed.insert(key);
    changes.emplace(key, std::move(change));
  }
  if (!written.changed.empty()) written.outcome = store.write(changes, id, domain).outcome;
  return written;
}

}  // namespace pellor
