// Preferences, posts, contacts and favorites in the files of one folder, and the other services in memory.
#pragma once

#include <ctime>
#include <functional>
#include <mutex>

#include "Files.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Timer.h"
#include "pellor/testing/SimulatedWorld.h"

namespace port {

/// One file a domain. Domains and keys are trusted to be parts of file names.
class FilePreferences : public PreferencesStore {
 public:
  explicit FilePreferences(fs::path folder) : _folder(std::move(folder)) {}

  Answer<Value> copyValue(std::string_view key, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    if (const auto found = domain.waiting.find(key); found != domain.waiting.end())
      return answer(true, found->second.value);
    if (!domain.seen) domain.seen = load(LockedFolder(_folder), name);
    return answer(domain.seen.has_value(), domain.seen ? domain.stored(key, *domain.seen).value : std::nullopt);
  }
  Answer<std::int64_t> integerValue(std::string_view key, std::string_view name) override {
    const auto copy = copyValue(key, name);
    return answer(copy.isReadable(), copy.value() ? copy.value()->integer() : std::nullopt);
  }
  Answer<bool> booleanValue(std::string_view key, std::string_view name) override {
    const auto copy = copyValue(key, name);
    return answer(copy.isReadable(), copy.value() ? copy.value()->boolean() : std::nullopt);
  }
  void setValue(std::string_view key, std::optional<Value> value, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    const auto kind = value ? PreferenceChange::Kind::set : PreferenceChange::Kind::remove;
    _domains[std::string(name)].waiting[std::string(key)] = {kind, std::move(value), std::nullopt};
  }
  bool synchronize(std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    const Outcome outcome = write(std::exchange(domain.waiting, {}), {}, name).outcome;
    domain.seen = load(LockedFolder(_folder), name);
    return outcome == Outcome::written && domain.seen;
  }
  Answer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    const auto content = load(LockedFolder(_folder), name);
    if (!content) return Answer<VersionedPreferences>::unreadable();
    VersionedPreferences found;
    for (const std::string& key : keys) found[key] = _domains[std::string(name)].stored(key, *content);
    return Answer<VersionedPreferences>::some(std::move(found));
  }
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    Domain& domain = _domains[std::string(name)];
    const LockedFolder folder(_folder);
    auto content = load(folder, name);
    if (!content) return {Outcome::failed, {}};
    for (const auto& [key, change] : changes)
      if (change.madeFrom && *change.madeFrom != domain.stored(key, *content).version) return {Outcome::overtaken, {}};
    PreferenceWriteAnswer result{Outcome::written, {}};
    for (const auto& [key, change] : changes) {
      if (change.kind == PreferenceChange::Kind::keep) continue;
      content->entries.erase(key);
      if (const auto& value = change.value) {
        if (value->longArray()) domain.last.insert_or_assign(key, *value);
        content->entries.emplace(key, Array{encoded(*value), *value, ++content->lastCount, id.writer, id.number});
      }
      result.written[key] = domain.stored(key, *content);
    }
    if (!result.written.empty())
      result.outcome = folder.replace(fileOf(name), Array{content->none.store, content->lastCount, content->entries});
    if (result.outcome != Outcome::written) return {result.outcome, {}};
    for (const auto& [key, now] : result.written) {  // what others wrote under other keys waits for `synchronize`
      if (domain.seen) domain.seen->entries.erase(key);
      if (domain.seen && now.value) domain.seen->entries.emplace(key, content->entries.at(key));
    }
    return result;
  }
  PutAside putAside(std::string_view key, std::string_view name) override {
    const std::lock_guard guard(_mutex);
    const LockedFolder folder(_folder);
    const auto content = load(folder, name);
    const Value* entry = content ? valueForKey(content->entries, key) : nullptr;
    if (!entry) return {};
    const std::string copy = fileOf(name) + "." + std::string(key) + "." + std::to_string(std::time(nullptr));
    return {folder.replace(copy, entry->array()->at(0)) == Outcome::written, entry->array()->at(1)};
  }
  std::optional<Value> persistentValueForKey(std::string_view, std::string_view) override { return std::nullopt; }

 private:
  /// What a file holds.
  struct Content {
    PreferenceVersion none;  // has the store's number
    std::int64_t lastCount;  // of all keys, also of removed ones: no version comes again
    Dictionary entries;      // by key: the value's bytes, its last good value; count, writer and number of the write
  };
  struct Domain {
    std::optional<Content> seen;                     // as of the last `synchronize`
    PreferenceChanges waiting;                       // for the next one
    std::map<std::string, Value, std::less<>> last;  // the long arrays that were read or written last

    VersionedPreference stored(std::string_view key, const Content& content) {
      const Value* entry = valueForKey(content.entries, key);
      if (!entry) return {std::nullopt, content.none};
      const auto number = [&](std::size_t at) { return static_cast<std::uint64_t>(*entry->array()->at(at).integer()); };
      const std::string& bytes = *entry->array()->at(0).string();
      const Value value = decoded(std::istringstream(bytes)).value_or(Data(bytes.begin(), bytes.end()));
      return {shared(key, value), {content.none.store, number(2), {number(3), number(4)}}};
    }
    /// Chunks that are equal to those of the last array are the same objects.
    Value shared(std::string_view key, const Value& value) {
      if (!value.array()) return value;
      auto chunks = LongArray(*value.array()).chunks();
      const auto found = last.find(key);
      const auto before = found != last.end() ? LongArray(*found->second.longArray()).chunks() : chunks;
      for (std::size_t at = 0; at < std::min(chunks.size(), before.size()); ++at)
        if (LongArray(std::vector{chunks[at]}) == LongArray(std::vector{before[at]})) chunks[at] = before[at];
      return last.insert_or_assign(std::string(key), LongArray(std::move(chunks))).first->second;
    }
  };

  template <class T>
  static Answer<T> answer(bool isReadable, const std::optional<T>& value) {
    if (!isReadable) return Answer<T>::unreadable();
    return value ? Answer<T>::some(*value) : Answer<T>::none();
  }
  static std::string fileOf(std::string_view name) { return "domain-" + std::string(name); }
  static std::optional<Content> load(const LockedFolder& folder, std::string_view name) {
    const auto stored = folder.read(fileOf(name), Array{randomNumber(), 0, Dictionary()});
    if (!stored) return std::nullopt;
    const Array& parts = *stored->array();
    return Content{
        {static_cast<std::uint64_t>(*parts.at(0).integer()), 0, {}}, *parts.at(1).integer(), *parts.at(2).dictionary()};
  }

  const fs::path _folder;
  std::recursive_mutex _mutex;  // `synchronize` writes
  std::map<std::string, Domain> _domains;
};

/// A list of the last posts, after a random text. One that does not go on where it was last seen was lost, or too long:
/// anybody may have posted.
class FileBus : public SystemNotifyBus {
 public:
  FileBus(Process& process, fs::path folder) : _process(process), _folder(std::move(folder)) { look(); }

  void addObserver(const void* observer, std::function<void()> callback, std::string_view name) override {
    _observations[{observer, std::string(name)}] = _process.notificationCenter().addObserver(
        Prefix + std::string(name), [callback](const Notification&) { callback(); });
  }
  void removeObserver(const void* observer, std::string_view name) override {
    _observations.erase({observer, std::string(name)});
  }
  void post(std::string_view name) override {
    _unwritten.emplace_back(name);
    deliver(_unwritten.back());
    look();
  }
  /// Called again and again: hears what others posted, and writes own posts that the file did not take.
  void look() {
    const LockedFolder folder(_folder);
    const auto stored = folder.read("bus", Array{std::to_string(randomNumber())});
    if (!stored) return;
    Array posts = *stored->array();
    const bool goesOn = !_posts.empty() && beginsWith(posts, _posts);
    for (std::size_t at = _posts.size(); goesOn && at < posts.size(); ++at) deliver(*posts[at].string());
    for (const auto& [observer, observation] : _observations)
      if (!goesOn) deliver(observer.second);
    _posts = posts;
    if (posts.size() > 1000) posts = {std::to_string(randomNumber())};
    posts.insert(posts.end(), _unwritten.begin(), _unwritten.end());
    if (posts == _posts || folder.replace("bus", posts) == Outcome::failed) return;
    _posts = std::move(posts);
    _unwritten.clear();
  }

 private:
  static constexpr const char* Prefix = "bus: ";  // of its names in the notification center
  void deliver(const std::string& name) {
    _process.mainQueue().async([&process = _process, name] {
      process.notificationCenter().post({Prefix + name, {}, {}});
    });
  }

  Process& _process;
  const fs::path _folder;
  Array _posts;  // as they were last seen
  std::vector<std::string> _unwritten;
  std::map<std::pair<const void*, std::string>, std::shared_ptr<Observation>> _observations;
};

/// Contacts and favorites as a list of changes, which every process replays in the same order into a world in memory:
/// so all of them give the same identifiers and sequence numbers.
class FileContacts {
 public:
  FileContacts(SimulatedWorld& world, fs::path folder) : _world(world), _folder(std::move(folder)) { look(); }

  /// What programs do that edit contacts; whether it is on the disk. The change is "remove" and a GUID, "link" and two,
  /// "favorites" and for each a GUID, the name and the number or address, or "put", a GUID, the first name, the last
  /// one and the nickname (empty: none), and for each destination "phone" or "email", the label and the value.
  static bool append(const fs::path& path, const Array& change) {
    const LockedFolder folder(path);
    const auto content = folder.read("contacts", empty());
    if (!content) return false;
    Array changes = *content->array();
    changes.push_back(change);
    return folder.replace("contacts", changes) == Outcome::written;
  }
  /// Called again and again. A list that does not go on where it was last read cannot be replayed on top of that one.
  void look() {
    const auto content = LockedFolder(_folder).read("contacts", empty());
    const bool isReadable = content && beginsWith(*content->array(), _replayed);
    if (isReadable != std::exchange(_isReadable, isReadable)) {
      _world.addressBook().setReadable(isReadable);
      _world.favorites().setReadable(isReadable);
    }
    while (isReadable && _replayed.size() < content->array()->size()) {
      _replayed.push_back(content->array()->at(_replayed.size()));
      replay(*_replayed.back().array());
    }
  }

 private:
  static Value empty() { return Array(1, Array{"database", std::to_string(randomNumber())}); }
  void replay(const Array& change) {
    InMemoryAddressBook& book = _world.addressBook();
    const auto text = [&](std::size_t at) { return *change.at(at).string(); };
    if (text(0) == "database") return book.setDatabaseUID(text(1));
    if (text(0) == "remove") return book.remove(text(1));
    if (text(0) == "link") return book.link({text(1), text(2)});
    if (text(0) == "favorites") {
      std::vector<FavoriteEntry> entries;
      for (std::size_t at = 1; at < change.size(); at += 3)
        entries.push_back({text(at + 1), text(at + 2), book.contact(text(at)).value_or(TestContact()).recordID});
      return _world.favorites().setEntries(std::move(entries));
    }
    const auto name = [&](std::size_t at) { return text(at).empty() ? std::nullopt : std::optional(text(at)); };
    TestContact contact{.guid = text(1), .first = name(2), .last = name(3), .nickname = name(4)};
    for (std::size_t at = 5; at < change.size(); at += 3)
      (text(at) == "phone" ? contact.phones : contact.emails).push_back({text(at + 1), text(at + 2)});
    const auto before = book.contact(contact.guid);
    if (!before) return void(book.add(contact));
    contact.recordID = before->recordID;
    book.change(contact.guid, [&](TestContact& stored) { stored = contact; });
  }

  SimulatedWorld& _world;
  const fs::path _folder;
  Array _replayed;
  bool _isReadable = true;
};

/// The services of a process, which outlives them, over a folder that is there. Main queue.
struct FilePlatform {
  FilePlatform(Process& process, const fs::path& folder)
      : bus(std::make_shared<FileBus>(process, folder)),
        contacts(world, folder),
        platform(world.makePlatform(process)) {
    platform.preferences = std::make_shared<FilePreferences>(folder);
    platform.notifyBus = bus;
    timer = Timer::make(process.mainQueue(), [this, &process] {
      contacts.look();
      bus->look();
      timer->fireAt(process.now() + 0.02);
    });
    timer->fireAt(process.now());
  }

  SimulatedWorld world;
  const std::shared_ptr<FileBus> bus;
  FileContacts contacts;
  Platform platform;
  std::shared_ptr<Timer> timer;
};

}  // namespace port
