// Preferences, posts, contacts and favorites in the files of one folder, and the other services in memory.
#pragma once

#include <ctime>
#include <functional>

#include "Files.h"
#include "pellor/platform/WholeDomainPreferences.h"
#include "pellor/runtime/Timer.h"
#include "pellor/testing/SimulatedWorld.h"

namespace port {

/// One file a domain. Domains and keys are trusted to be parts of file names.
class FilePreferences : public WholeDomainPreferences {
 public:
  explicit FilePreferences(fs::path folder) : _folder(std::move(folder)) {}

 private:
  struct LockedFile : LockedDomain {
    LockedFile(const fs::path& path, std::string name) : folder(path), file(std::move(name)) {}
    std::optional<Value> read(const Value& initial) override { return folder.read(file, initial); }
    Outcome replace(const Value& content) override { return folder.replace(file, content); }
    bool putAside(std::string_view key, const Data& bytes) override {
      const std::string copy = file + "." + std::string(key) + "." + std::to_string(std::time(nullptr));
      return folder.replace(copy, bytes) == Outcome::written;
    }
    const LockedFolder folder;
    const std::string file;
  };
  std::unique_ptr<LockedDomain> lockDomain(std::string_view name) override {
    return std::make_unique<LockedFile>(_folder, "domain-" + std::string(name));
  }

  const fs::path _folder;
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

  /// What programs do that edit contacts; whether it is on the disk. The change is "remove" and a GUID, "link" or
  /// "favorites" and several, or "put", a GUID, the first name, the last one and the nickname (empty: none), and for
  /// each destination "phone" or "email", the label and the value.
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
    std::vector<std::string> words;
    for (const Value& word : change) words.push_back(*word.string());
    const std::vector<std::string> others(words.begin() + 1, words.end());
    if (words[0] == "database") _world.addressBook().setDatabaseUID(words[1]);
    if (words[0] == "remove") _world.addressBook().remove(words[1]);
    if (words[0] == "link") _world.addressBook().link(others);
    if (words[0] == "favorites") _world.setFavorites(others);
    if (words[0] == "put") _world.addressBook().put(contactOf(words));
  }
  static TestContact contactOf(const std::vector<std::string>& words) {
    const auto name = [&](std::size_t at) { return words[at].empty() ? std::nullopt : std::optional(words[at]); };
    TestContact contact{.guid = words[1], .first = name(2), .last = name(3), .nickname = name(4)};
    for (std::size_t at = 5; at < words.size(); at += 3)
      (words[at] == "phone" ? contact.phones : contact.emails).push_back({words[at + 1], words[at + 2]});
    return contact;
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
