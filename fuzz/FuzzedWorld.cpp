#include "fuzz/FuzzedWorld.h"

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/Fatal.h"

namespace pellor::fuzzing {
namespace {

Value valueOf(const std::optional<std::string>& text) { return text ? Value(*text) : Value(false); }

// As a value, since a real that is no number is not equal to itself.
Value valueOf(const std::optional<ExportedFriend>& person) {
  if (!person || person->destinations.empty()) return false;
  const Array destinations(person->destinations.begin(), person->destinations.end());
  return Array{valueOf(person->name),    valueOf(person->monogram),    destinations,     valueOf(person->chosenNumber),
               valueOf(person->replyAs), valueOf(person->contactGUID), person->metadata, person->otherEntries};
}

}  // namespace

FuzzedWorld::FuzzedWorld() {
  set(PLMaxGroupCountKey, 3);
  set(PLGroupSizeKey, 4);
  for (const std::string name : {"Ann", "Bob"}) {
    TestContact contact{.guid = "guid-" + name, .first = name};
    contact.emails = {{"home", name + "@example.org"}};
    _world.addressBook().add(contact);
  }
}

void FuzzedWorld::rest() {
  while (_scheduler->step()) {
  }
}

FuzzedProcess::FuzzedProcess(FuzzedWorld& world)
    : _process(std::make_unique<Process>(world.scheduler(), std::make_shared<LogCollector>())) {
  run([&] { installPlatform(*_process, world.world().makePlatform(*_process)); });
}

FuzzedProcess::~FuzzedProcess() {
  run([this] {
    _list.reset();
    _manager.reset();
  });
}

void FuzzedProcess::open() {
  run([this] {
    _manager = PLFriendsManager::initWithDomain(std::string(TapnoteDomain));
    _list = FriendList::open(_manager, "fuzzed");
  });
}

Data FuzzedProcess::shown() {
  const ExportedList list = run([this] { return _list->exported(); });
  Array pages;
  for (const ExportedPage& page : list.pages) {
    Array slots;
    for (const auto& person : page.friends) slots.push_back(valueOf(person));
    while (!slots.empty() && slots.back() == Value(false)) slots.pop_back();
    pages.push_back(Array{Value(page.title), Value(std::move(slots))});
  }
  const auto isEmpty = [](const Value& page) { return page.array()->back().array()->empty(); };
  while (!pages.empty() && isEmpty(pages.back())) pages.pop_back();
  const auto bytes = encodeCBOR(pages);
  require(bytes.has_value(), "a list that can be exported");
  return *bytes;
}

void requireSound(FuzzedProcess& process) {
  const auto violation = process.run([&] { return process.manager().invariantViolation(); });
  require(!violation, violation.value_or(""));
}

void requireSame(FuzzedProcess& one, FuzzedProcess& other) {
  require(one.shown() == other.shown(), "one list in all processes");
}

}  // namespace pellor::fuzzing
