#include "tests/pellor/ManagerWorld.h"

#include <algorithm>
#include <array>
#include <cctype>
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string result;
  for (const std::string& text : texts) result.append(result.empty() ? "" : separator).append(text);
  return result;
}

std::string titlesAsText(std::vector<std::string> titles) {
  std::ranges::replace(titles, std::string(), "-");
  return joined(titles, "|");
}

std::string slotsAsText(const std::vector<std::string>& slots, std::uint64_t groupSize) {
  std::string text;
  for (std::size_t index = 0; index < slots.size(); ++index) {
    if (index > 0) text += groupSize != 0 && index % groupSize == 0 ? "|" : ",";
    text += slots[index];
  }
  return text;
}

}  // namespace

std::string mailOf(std::string name) {
  for (char& letter : name) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return name + "@example.org";
}

std::string guidOf(const std::string& name) { return "guid-" + name; }

TestContact contactNamed(const std::string& name) {
  TestContact contact;
  contact.guid = guidOf(name);
  contact.first = name;
  contact.emails = {{"home", mailOf(name)}};
  return contact;
}

Dictionary storedForm(const std::string& text) {
  const std::string name = text.substr(0, text.find('#'));
  Dictionary form{{"ABRecordID", InvalidRecordID},
                  {"ABDatabaseUID", "TestDatabase"},
                  {"Name", name},
                  {"AllValues", Array{mailOf(name)}},
                  {"Monogram", name.substr(0, 1)}};
  if (name != text) form.emplace("ABRecordGUID", guidOf(name));
  return form;
}

Array storedList(const std::string& text) {
  Array list;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find_first_of(",|", begin), text.size());
    const std::string slot = text.substr(begin, end - begin);
    list.emplace_back(slot == "-" ? Dictionary{} : storedForm(slot));
    begin = end + 1;
  }
  return list;
}

LongArray storedAfter(const std::optional<Value>& before, const Array& list) {
  const LongArray* const known = before ? before->longArray() : nullptr;
  auto chunks = LongArray(list).chunks();
  for (std::size_t index = 0; known && index < std::min(chunks.size(), known->chunks().size()); ++index) {
    const auto& chunk = known->chunks()[index];
    if (LongArray({chunk}) == LongArray({chunks[index]})) chunks[index] = chunk;
  }
  return LongArray(std::move(chunks));
}

std::string textOf(const Value& list, std::uint64_t groupSize) {
  if (!list.array()) return "no list";
  std::vector<std::string> slots;
  for (const Value& element : *list.array()) {
    const Dictionary* form = element.dictionary();
    slots.push_back(!form || form->empty() ? "-" : stringForKey(*form, "Name").value_or("?"));
  }
  return slotsAsText(slots, groupSize);
}

std::string textOf(const PLChangeLog& log) {
  static const std::array<std::pair<std::string_view, char>, 4> marks{{{PLFriendsManagerPersonAdded, '+'},
                                                                       {PLFriendsManagerPersonUpdated, '~'},
                                                                       {PLFriendsManagerPersonDeleted, '-'},
                                                                       {PLFriendsManagerPersonMoved, '>'}}};
  std::vector<std::string> entries;
  for (const auto& [person, types] : log.entries()) {
    std::string entry = person->displayName().value_or("?");
    for (const auto& [type, mark] : marks) {
      if (types.contains(type)) entry += mark;
    }
    entries.push_back(entry);
  }
  return joined(entries, " ");
}

// --- ManagerProcess ---

struct ManagerProcess::Events : LogSink {
  struct Event {
    std::string text;
    bool isLogLine;
  };
  void write(const LogEntry& entry) override { add(entry.messageText(), true); }
  void add(std::string text, bool isLogLine) {
    const std::lock_guard lock(mutex);
    events.push_back({std::move(text), isLogLine});
  }

  mutable std::mutex mutex;
  std::vector<Event> events;
};

ManagerProcess::ManagerProcess(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler, std::string domain,
                               const std::function<void(Platform&)>& adjust)
    : _events(std::make_shared<Events>()),
      _domain(std::move(domain)),
      _process(std::make_unique<Process>(scheduler, _events)) {
  const Process::Scope scope(*_process);
  Platform platform = world.makePlatform(*_process);
  adjust(platform);
  installPlatform(*_process, std::move(platform));
  NotificationCenter& center = _process->notificationCenter();
  const auto note = [events = _events](std::string text) { events->add(std::move(text), false); };
  _observations = {center.addObserver(std::string(PLFriendsManagerChangedNotification),
                                      [note](const Notification& notification) {
                                        note("changed " + textOf(*notification.userInfoAs<PLChangeLog>()));
                                      }),
                   center.addObserver(std::string(PLFriendsManagerGroupListChanged),
                                      [note](const Notification&) { note("groups changed"); }),
                   center.addObserver(std::string(PLFriendGroupTitleChangedNotification),
                                      [note](const Notification&) { note("title changed"); }),
                   center.addObserver(std::string(PLFriendsManagerDestinationStatusUpdatedNotification),
                                      [note](const Notification& notification) {
                                        const auto& info = *notification.userInfoAs<Dictionary>();
                                        note("statuses " + info.begin()->second.description());
                                      })};
}

ManagerProcess::~ManagerProcess() {
  const Process::Scope scope(*_process);
  _manager.reset();
}

ManagerProcess& ManagerProcess::start() {
  run([this] { _manager = PLFriendsManager::initWithDomain(_domain); });
  return *this;
}

void ManagerProcess::releaseManager() {
  run([this] { _manager.reset(); });
}

void ManagerProcess::kill() {
  releaseManager();
  _process->abandon();
}

std::shared_ptr<PLPerson> ManagerProcess::person(const std::string& name) {
  return run([&] {
    std::shared_ptr<PLPerson> person;
    platformOf(*_process).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
      const bool isContact = addressBook.copyPersonMatchingGUID(guidOf(name)) != nullptr;
      person =
          isContact ? _manager->personWithABRecordGUID(guidOf(name)) : _manager->personWithDestinations({mailOf(name)});
    });
    return person;
  });
}

bool ManagerProcess::add(const std::string& name) { return add(person(name)); }

bool ManagerProcess::add(const std::shared_ptr<PLPerson>& person) {
  return run([&] { return _manager->addFriend(person); });
}

void ManagerProcess::set(const std::shared_ptr<PLPerson>& person, std::uint64_t groupIndex, std::uint64_t position) {
  run([&] {
    std::uint32_t error = PLFriendGroupErrorNone;
    group(groupIndex)->setFriendAtPosition(person, position, error);
    ASSERT_EQ(error, PLFriendGroupErrorNone);
  });
}

void ManagerProcess::remove(std::uint64_t groupIndex, std::uint64_t position) {
  run([&] { group(groupIndex)->removeFriendAtPosition(position); });
}

void ManagerProcess::setTitle(std::uint64_t groupIndex, const std::string& title) {
  run([&] { group(groupIndex)->setTitle(title); });
}

std::shared_ptr<PLPerson> ManagerProcess::friendAt(std::uint64_t groupIndex, std::uint64_t position) {
  return group(groupIndex)->friendAtPosition(position);
}

std::string ManagerProcess::list() {
  return run([this] {
    EXPECT_EQ(_manager->invariantViolation(), std::nullopt);
    std::vector<std::string> slots;
    for (const auto& group : _manager->friendGroups()) {
      for (const auto& person : group->friends()) slots.push_back(person ? person->displayName().value_or("?") : "-");
    }
    return slotsAsText(slots, _manager->groupSize());
  });
}

std::string ManagerProcess::titles() {
  std::vector<std::string> titles;
  for (const auto& group : _manager->friendGroups()) titles.push_back(group->title().value_or(""));
  return titlesAsText(titles);
}

std::vector<std::string> ManagerProcess::takeEvents(bool withLogLines) {
  const std::lock_guard lock(_events->mutex);
  std::vector<std::string> texts;
  for (auto& event : std::exchange(_events->events, {})) {
    if (withLogLines || !event.isLogLine) texts.push_back(std::move(event.text));
  }
  return texts;
}

std::size_t ManagerProcess::logged(std::string_view text) const {
  const std::lock_guard lock(_events->mutex);
  return static_cast<std::size_t>(std::ranges::count_if(_events->events, [&](const Events::Event& event) {
    return event.isLogLine && event.text.find(text) != std::string::npos;
  }));
}

// --- ManagerTest ---

std::unique_ptr<ManagerProcess> ManagerTest::makeProcess(const std::string& domain) {
  return std::make_unique<ManagerProcess>(world, scheduler, domain);
}

std::unique_ptr<ManagerProcess> ManagerTest::launch(const std::string& domain) {
  auto process = makeProcess(domain);
  process->start();
  return process;
}

std::unique_ptr<ManagerProcess> ManagerTest::launchWith(const std::string& list) {
  store(list);
  auto process = launch();
  rest();
  process->takeEvents();
  world.preferences().clearRecords();
  world.addressBook().clearRecords();
  return process;
}

void ManagerTest::rest() {
  while (scheduler->step()) {
  }
}

std::vector<std::vector<std::string>> ManagerTest::takeWrites() {
  std::vector<std::vector<std::string>> keys;
  for (const auto& write : world.preferences().writes()) keys.push_back(write.keys);
  world.preferences().clearRecords();
  return keys;
}

void ManagerTest::contacts(const std::vector<std::string>& names) {
  std::vector<TestContact> contacts;
  std::ranges::transform(names, std::back_inserter(contacts), contactNamed);
  world.addressBook().addAll(std::move(contacts));
}

void ManagerTest::setGroups(std::uint64_t count, std::uint64_t size, const std::string& domain) {
  setSetting(PLMaxGroupCountKey, count, domain);
  setSetting(PLGroupSizeKey, size, domain);
}

void ManagerTest::store(const std::string& list, const std::string& domain) {
  world.preferences().setValue(PLFriendListKey, storedList(list), domain);
}

std::string ManagerTest::stored(std::uint64_t groupSize, const std::string& domain) {
  const auto list = world.preferences().value(PLFriendListKey, domain);
  return list ? textOf(*list, groupSize) : "none";
}

void ManagerTest::storeTitles(const std::vector<std::string>& titles, const std::string& domain) {
  world.preferences().setValue(PLGroupTitlesKey, Array(titles.begin(), titles.end()), domain);
}

std::string ManagerTest::storedTitles(const std::string& domain) {
  const auto stored = world.preferences().value(PLGroupTitlesKey, domain);
  if (!stored || !stored->array()) return "none";
  std::vector<std::string> titles;
  for (const Value& title : *stored->array()) titles.push_back(*title.string());
  return titlesAsText(titles);
}

}  // namespace pellor
