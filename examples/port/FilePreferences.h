// Preferences in files: one a domain, replaced as a whole by each write.
#pragma once

#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <set>

#include "Files.h"
#include "pellor/runtime/LongArray.h"

namespace port {

using namespace pellor;

class FilePreferences : public PreferencesStore {
 public:
  /// The stores of all processes of the user have one folder, which is there.
  explicit FilePreferences(fs::path folder) : _folder(std::move(folder)) {}

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    if (const auto found = domain.waiting.find(key); found != domain.waiting.end()) return answer(found->second);
    if (!domain.seen && load(name, domain)) domain.seen = domain.last.entries;
    if (!domain.seen) return PreferenceAnswer<Value>::unreadable();
    const auto found = domain.seen->find(key);
    return answer(found != domain.seen->end() ? std::optional(found->second->value) : std::nullopt);
  }
  PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view name) override {
    const auto copy = copyValue(key, name);
    if (!copy.isReadable()) return PreferenceAnswer<std::int64_t>::unreadable();
    return answer(copy.value() ? copy.value()->integer() : std::nullopt);
  }
  PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view name) override {
    const auto copy = copyValue(key, name);
    if (!copy.isReadable()) return PreferenceAnswer<bool>::unreadable();
    return answer(copy.value() ? copy.value()->boolean() : std::nullopt);
  }
  void setValue(std::string_view key, std::optional<Value> value, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    _domains[std::string(name)].waiting.insert_or_assign(std::string(key), std::move(value));
  }

  bool synchronize(std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    bool isWritten = true;
    if (const auto waiting = std::exchange(domain.waiting, {}); !waiting.empty()) {
      PreferenceChanges changes;
      for (const auto& [key, value] : waiting)
        changes[key] = {value ? PreferenceChange::Kind::set : PreferenceChange::Kind::remove, value, std::nullopt};
      isWritten = store(changes, {}, name, domain).outcome == PreferenceWriteOutcome::written;
    }
    const bool isRead = load(name, domain);
    domain.seen = isRead ? std::optional(domain.last.entries) : std::nullopt;
    return isWritten && isRead;
  }

  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    if (!load(name, domain)) return PreferenceAnswer<VersionedPreferences>::unreadable();
    VersionedPreferences found;
    for (const std::string& key : keys) found[key] = domain.last.at(key);
    return PreferenceAnswer<VersionedPreferences>::some(std::move(found));
  }
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    const PreferenceWriteAnswer result = store(changes, id, name, domain);
    if (!domain.seen) return result;
    for (const auto& [key, now] : result.written) {  // what others wrote under other keys waits for `synchronize`
      domain.seen->erase(key);
      if (now.value) domain.seen->emplace(key, domain.last.entries.at(key));
    }
    return result;
  }

  PutAside putAside(std::string_view key, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    const FileLock lock(_folder / "lock");
    Domain& domain = _domains[std::string(name)];
    if (!lock.isHeld() || !load(name, domain, true)) return {};
    const auto found = domain.last.entries.find(key);
    if (found == domain.last.entries.end()) return {};
    const fs::path copy = fileOf(name).string() + "." + hex(key) + "." + std::to_string(std::time(nullptr));
    return {replaceFile(copy, found->second->bytes) == Replaced::yes, decoded(found->second->lastGood)};
  }
  std::optional<Value> persistentValueForKey(std::string_view, std::string_view) override { return std::nullopt; }

 private:
  struct Entry {
    std::string bytes, lastGood;
    Value value;
    PreferenceVersion version;
  };
  using Entries = std::map<std::string, std::shared_ptr<const Entry>, std::less<>>;
  struct Stored {
    std::int64_t number = 0, lastCount = 0;  // a version never comes again, also not that of a removed key
    Entries entries;

    VersionedPreference at(std::string_view key) const {
      const auto found = entries.find(key);
      if (found == entries.end()) return {std::nullopt, {static_cast<std::uint64_t>(number), 0, {}}};
      return {found->second->value, found->second->version};
    }
  };
  struct Domain {
    Stored last;                  // read or written last; values that are equal the next time stay these objects
    std::optional<Entries> seen;  // as of the last `synchronize`
    std::map<std::string, std::optional<Value>, std::less<>> waiting;
  };

  template <class T>
  static PreferenceAnswer<T> answer(const std::optional<T>& value) {
    return value ? PreferenceAnswer<T>::some(*value) : PreferenceAnswer<T>::none();
  }
  fs::path fileOf(std::string_view name) const { return _folder / ("domain-" + hex(name)); }

  /// Whether the domain could be read. One that is new gets its number and a file, for which the lock is needed.
  bool load(std::string_view name, Domain& domain, bool isLocked = false) const {
    const auto bytes = readFile(fileOf(name));
    if (!bytes.isReadable()) return false;
    if (bytes.value()) return parse(*bytes.value(), domain);
    if (isLocked) return save(name, domain.last = {randomNumber(), 0, {}}) == Replaced::yes;
    const FileLock lock(_folder / "lock");
    return lock.isHeld() && load(name, domain, true);
  }

  static bool parse(const std::string& bytes, Domain& domain) {
    const auto content = decoded(bytes);
    const Array* parts = content ? content->array() : nullptr;
    if (!parts || parts->size() != 3 || !(*parts)[2].dictionary()) return false;
    Stored stored{(*parts)[0].integer().value_or(0), (*parts)[1].integer().value_or(0), {}};
    for (const auto& [key, fields] : *(*parts)[2].dictionary()) {
      const Array* field = fields.array();
      if (!field || field->size() != 5 || !(*field)[0].string() || !(*field)[1].string()) return false;
      const auto number = [&](std::size_t at) {
        return static_cast<std::uint64_t>((*field)[at].integer().value_or(0));
      };
      const auto known = domain.last.entries.find(key);
      const Entry* before = known != domain.last.entries.end() ? known->second.get() : nullptr;
      Entry entry{*(*field)[0].string(),
                  *(*field)[1].string(),
                  false,
                  {static_cast<std::uint64_t>(stored.number), number(2), {number(3), number(4)}}};
      const bool isSame = before && before->bytes == entry.bytes && before->lastGood == entry.lastGood;
      if (isSame && before->version == entry.version) {
        stored.entries.emplace(key, known->second);
        continue;
      }
      entry.value = isSame ? before->value : valueOf(entry.bytes, before);
      stored.entries.emplace(key, std::make_shared<const Entry>(std::move(entry)));
    }
    domain.last = std::move(stored);
    return domain.last.number != 0;
  }

  /// Chunks of an array that are equal to those before are those very objects.
  static Value valueOf(const std::string& bytes, const Entry* before) {
    const auto value = decoded(bytes);
    if (!value) return Data(bytes.begin(), bytes.end());
    if (!value->array()) return *value;
    std::vector<std::shared_ptr<const ArrayChunk>> chunks = LongArray(*value->array()).chunks();
    const LongArray* known = before ? before->value.longArray() : nullptr;
    for (std::size_t at = 0; known && at < std::min(chunks.size(), known->chunks().size()); ++at) {
      const auto& chunk = known->chunks()[at];
      if (LongArray(std::vector{chunk}) == LongArray(std::vector{chunks[at]})) chunks[at] = chunk;
    }
    return LongArray(std::move(chunks));
  }

  Replaced save(std::string_view name, const Stored& stored) const {
    Dictionary entries;
    for (const auto& [key, entry] : stored.entries) {
      const PreferenceVersion& version = entry->version;
      entries.emplace(key,
                      Array{entry->bytes, entry->lastGood, version.count, version.write.writer, version.write.number});
    }
    return replaceFile(fileOf(name), encoded(Array{stored.number, stored.lastCount, std::move(entries)}).value());
  }

  /// All changes or none, in place of the very versions that they were made from.
  PreferenceWriteAnswer store(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view name,
                              Domain& domain) const {
    using Outcome = PreferenceWriteOutcome;
    const FileLock lock(_folder / "lock");
    if (!lock.isHeld() || !load(name, domain, true)) return {Outcome::failed, {}};
    for (const auto& [key, change] : changes)
      if (change.madeFrom && *change.madeFrom != domain.last.at(key).version) return {Outcome::overtaken, {}};
    Stored next = domain.last;
    std::set<std::string> changed;
    for (const auto& [key, change] : changes) {
      if (change.kind == PreferenceChange::Kind::keep) continue;
      changed.insert(key);
      next.entries.erase(key);
      if (change.kind == PreferenceChange::Kind::remove) continue;
      const auto bytes = encoded(change.value.value());
      if (!bytes) return {Outcome::failed, {}};
      const PreferenceVersion version{static_cast<std::uint64_t>(next.number),
                                      static_cast<std::uint64_t>(++next.lastCount), id};
      next.entries.emplace(key, std::make_shared<const Entry>(Entry{*bytes, *bytes, *change.value, version}));
    }
    const Replaced replaced = changed.empty() ? Replaced::yes : save(name, next);
    if (replaced != Replaced::yes) return {replaced == Replaced::no ? Outcome::failed : Outcome::unknown, {}};
    domain.last = std::move(next);
    PreferenceWriteAnswer result{Outcome::written, {}};
    for (const std::string& key : changed) result.written[key] = domain.last.at(key);
    return result;
  }

  const fs::path _folder;
  std::mutex _mutex;
  std::map<std::string, Domain> _domains;
};

}  // namespace port
