// A preferences store over anything that can keep one value a domain: a file, a record, a key of another store.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/platform/PreferencesStore.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Does for a port all that the interface says of values that wait, of what a process sees, of versions and of damaged
/// values; the port locks, reads and replaces what is stored of a domain, as a whole. Each call costs as much as the
/// domain holds, and each value is in it twice. Any thread.
class WholeDomainPreferences : public PreferencesStore {
 public:
  /// What is stored of one domain. As long as this object lives, no other thread or process has such an object for the
  /// domain; one that cannot be had reads as absent.
  class LockedDomain {
   public:
    virtual ~LockedDomain() = default;
    /// What was stored last; `initial`, which is stored then, when nothing ever was; absent when it cannot be read.
    virtual std::optional<Value> read(const Value& initial) = 0;
    /// Stores `content` whole or not at all; `written` once it survives the end of the process and of the system.
    virtual PreferenceWriteOutcome replace(const Value& content) = 0;
    /// Makes a dated copy of the damaged bytes of a key beside the store. Returns whether it exists.
    virtual bool putAside(std::string_view key, const Data& bytes) = 0;
  };

  PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) override {
    const MutexLock lock(_mutex);
    DomainView& view = domainNamed(domain);
    const auto waiting = view.waiting.find(key);
    if (waiting != view.waiting.end()) return PreferenceAnswer<Value>::of(waiting->second.value);
    if (!view.seen) view.seen = load(*lockDomain(domain));
    return view.seen ? PreferenceAnswer<Value>::of(view.stored(key, *view.seen).value)
                     : PreferenceAnswer<Value>::unreadable();
  }

  void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) override {
    const MutexLock lock(_mutex);
    const auto kind = value ? PreferenceChange::Kind::set : PreferenceChange::Kind::remove;
    domainNamed(domain).waiting[std::string(key)] = {kind, std::move(value), std::nullopt};
  }

  bool synchronize(std::string_view domain) override {
    const MutexLock lock(_mutex);
    DomainView& view = domainNamed(domain);
    const auto locked = lockDomain(domain);
    const auto outcome = write(*locked, view, std::exchange(view.waiting, {}), {}).outcome;
    view.seen = load(*locked);
    return outcome == PreferenceWriteOutcome::written && view.seen;
  }

  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override {
    const MutexLock lock(_mutex);
    const auto content = load(*lockDomain(domain));
    if (!content) return PreferenceAnswer<VersionedPreferences>::unreadable();
    VersionedPreferences found;
    for (const std::string& key : keys) found[key] = domainNamed(domain).stored(key, *content);
    return PreferenceAnswer<VersionedPreferences>::some(std::move(found));
  }

  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id,
                              std::string_view domain) override {
    const MutexLock lock(_mutex);
    return write(*lockDomain(domain), domainNamed(domain), changes, id);
  }

  PutAside putAside(std::string_view key, std::string_view domain) override {
    const MutexLock lock(_mutex);
    const auto locked = lockDomain(domain);
    const auto content = load(*locked);
    const auto entry = content ? content->entries.find(key) : DomainContent::Entries::const_iterator();
    if (!content || entry == content->entries.end()) return {};
    return {locked->putAside(key, entry->second.bytes), decodeCBOR(entry->second.lastGood)};
  }

 protected:
  /// Waits until no other has the domain. Never null. Called under a lock of the store.
  virtual std::unique_ptr<LockedDomain> lockDomain(std::string_view domain) = 0;

 private:
  struct DomainContent {
    struct Entry {
      Data bytes;     // of the value; they may have been damaged since
      Data lastGood;  // the same bytes again
      std::uint64_t count = 0;
      PreferenceWriteID write;
    };
    using Entries = std::map<std::string, Entry, std::less<>>;

    std::uint64_t store = 0;
    std::uint64_t lastCount = 0;  // of all keys, also of removed ones: no version comes again
    Entries entries;
  };

  /// What the process sees of a domain.
  struct DomainView {
    std::optional<DomainContent> seen;                   // as of the last `synchronize`
    PreferenceChanges waiting;                           // for the next one
    std::map<std::string, LongArray, std::less<>> last;  // the arrays that were read or written last

    VersionedPreference stored(std::string_view key, const DomainContent& content) {
      const auto entry = content.entries.find(key);
      if (entry == content.entries.end()) return {std::nullopt, {content.store, 0, {}}};
      Value value = decodeCBOR(entry->second.bytes).value_or(entry->second.bytes);
      if (value.array()) {
        LongArray& list = last[std::string(key)];
        list = LongArray(*value.array()).sharingChunksOf(list);
        value = list;
      }
      return {std::move(value), {content.store, entry->second.count, entry->second.write}};
    }
    /// What others wrote under other keys waits for `synchronize`.
    void show(const std::string& key, const DomainContent& content) {
      if (!seen) return;
      seen->entries.erase(key);
      if (const auto entry = content.entries.find(key); entry != content.entries.end()) seen->entries.insert(*entry);
    }
  };

  DomainView& domainNamed(std::string_view domain) PELLOR_REQUIRES(_mutex) {
    return _domains.try_emplace(std::string(domain)).first->second;
  }

  static PreferenceWriteAnswer write(LockedDomain& locked, DomainView& view, const PreferenceChanges& changes,
                                     PreferenceWriteID id) {
    using Outcome = PreferenceWriteOutcome;
    auto content = load(locked);
    if (!content) return {Outcome::failed, {}};
    for (const auto& [key, change] : changes)
      if (change.madeFrom && *change.madeFrom != view.stored(key, *content).version) return {Outcome::overtaken, {}};
    if (!apply(changes, id, *content)) return {Outcome::failed, {}};
    PreferenceWriteAnswer answer{Outcome::written, {}};
    const auto isKept = [](const auto& change) { return change.second.kind == PreferenceChange::Kind::keep; };
    if (!std::ranges::all_of(changes, isKept)) answer.outcome = locked.replace(valueOf(*content));
    if (answer.outcome != Outcome::written) return answer;
    for (const auto& [key, change] : changes) {
      if (change.kind == PreferenceChange::Kind::keep) continue;
      if (change.value && change.value->longArray()) view.last[key] = *change.value->longArray();
      answer.written[key] = view.stored(key, *content);
      view.show(key, *content);
    }
    return answer;
  }

  /// False for a value that is too deep or too long.
  static bool apply(const PreferenceChanges& changes, PreferenceWriteID id, DomainContent& content) {
    for (const auto& [key, change] : changes) {
      if (change.kind == PreferenceChange::Kind::keep) continue;
      content.entries.erase(key);
      if (!change.value) continue;
      const auto bytes = encodeCBOR(*change.value);
      if (!bytes) return false;
      content.entries.emplace(key, DomainContent::Entry{*bytes, *bytes, ++content.lastCount, id});
    }
    return true;
  }

  static std::optional<DomainContent> load(LockedDomain& locked) {
    std::random_device device;
    const DomainContent empty{std::uniform_int_distribution<std::uint64_t>(1)(device), 0, {}};
    const auto value = locked.read(valueOf(empty));
    return value ? contentOf(*value) : std::nullopt;
  }

  // As a value: the store's number, the last count, and by key the bytes, the last good ones, the count, the writer and
  // the number of the write. Numbers are integers of the same bits.

  static Value valueOf(const DomainContent& content) {
    Dictionary entries;
    for (const auto& [key, entry] : content.entries)
      entries.emplace(key, Array{entry.bytes, entry.lastGood, entry.count, entry.write.writer, entry.write.number});
    return Array{content.store, content.lastCount, std::move(entries)};
  }

  /// Absent for a value that no `valueOf` made.
  static std::optional<DomainContent> contentOf(const Value& value) {
    if (!value.array() || value.array()->size() != 3) return std::nullopt;
    const Array& parts = *value.array();
    if (!parts[0].integer() || !parts[1].integer() || !parts[2].dictionary()) return std::nullopt;
    DomainContent content{numberOf(parts[0]), numberOf(parts[1]), {}};
    for (const auto& [key, entry] : *parts[2].dictionary()) {
      const Array* fields = entry.array();
      if (!fields || fields->size() != 5 || !fields->at(0).data() || !fields->at(1).data()) return std::nullopt;
      for (std::size_t at = 2; at < 5; ++at)
        if (!fields->at(at).integer()) return std::nullopt;
      content.entries.emplace(key, DomainContent::Entry{*fields->at(0).data(),
                                                        *fields->at(1).data(),
                                                        numberOf(fields->at(2)),
                                                        {numberOf(fields->at(3)), numberOf(fields->at(4))}});
    }
    return content;
  }
  static std::uint64_t numberOf(const Value& value) { return static_cast<std::uint64_t>(*value.integer()); }

  Mutex _mutex;
  std::map<std::string, DomainView, std::less<>> _domains PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
