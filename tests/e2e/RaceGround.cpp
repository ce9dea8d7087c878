#include "tests/e2e/RaceGround.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace pellor {
namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

constexpr int FriendContacts = 8;
constexpr int NewContacts = 6;
constexpr std::size_t MostRoomyPages = 20;
constexpr std::size_t MostNarrowPages = 2;

RaceContact contactOf(const std::string& guid) {
  const int area = guid.front() == 'c' ? 5550100 : 5550200;
  return {"Person " + guid, {"+4930" + std::to_string(area + std::stoi(guid.substr(1)))}};
}

// Page 1: three friends and room. 2: three friends with a hole. 3: empty, with a title. 4: two friends. 5: one friend,
// no title. 6: the empty one behind them.
const std::vector<Arguments> RoomyList = {
    {"settings", "page-size", "4"},
    {"add", "c1", "c2", "c3", "c4", "c5", "c6", "c7", "c8", "+49305550900"},
    {"move", "c8", "4:1"},
    {"move", "c8", "5:1"},
    {"move", "c6", "4:1"},
    {"move", "c7", "4:2"},
    {"move", "c5", "2:4"},
    {"move", "c4", "2:1"},
    {"move", "+49305550900", "2:3"},
    {"title", "1", "Family"},
    {"title", "2", "Work"},
    {"title", "3", "Later"},
    {"title", "4", "Club"},
    {"meta", "c1", "colour", "blue"},
    {"meta", "c4", "colour", "red"},
    {"meta", "c4", "size", "small"},
    {"reply-as", "c6", "old@example.org"},
};

const std::vector<Arguments> NarrowList = {
    {"settings", "page-size", "3"},
    {"settings", "max-pages", std::to_string(MostNarrowPages)},
    {"add", "c1", "c2", "c3", "c4", "+49305550900"},
    {"title", "1", "Family"},
    {"title", "2", "Work"},
    {"meta", "c2", "colour", "blue"},
};

}  // namespace

RaceGround::RaceGround(RaceListShape shape, RaceDatabases* databases) : _shape(shape), _databases(databases) {
  if (_databases) _preparedDatabase = _database = _databases->make();
  for (const auto& [kind, count] : {std::pair("c", FriendContacts), std::pair("a", NewContacts)}) {
    for (int number = 1; number <= count; ++number) {
      const std::string guid = kind + std::to_string(number);
      addContact(guid, contactOf(guid));
    }
  }
  for (const Arguments& arguments : _shape == RaceListShape::roomy ? RoomyList : NarrowList) run(command(arguments));
  const auto list = raceListIn(readList());
  if (!list) throw std::runtime_error("the list of the races could not be prepared");
  _list = *list;
  run({"cp", "-a", _home.dataFolder(), _home / "prepared"});
}

RaceGround::~RaceGround() {
  if (_databases && _database != _preparedDatabase) _databases->drop(_database);
}

void RaceGround::addContact(const std::string& guid, const RaceContact& contact) const {
  _home.addContact(guid, contact.name, "TEL:" + contact.destinations.front() + "\n");
}

void RaceGround::run(const Arguments& command) const {
  const ProgramResult result = Program(_home, command).finish();
  if (result.exitCode != 0) throw std::runtime_error(command.at(1) + ": " + result.errors);
}

void RaceGround::reset() {
  fs::remove_all(_home.dataFolder());
  // With the times of files and folders: contacts that are as they were are not read again.
  run({"cp", "-a", _home / "prepared", _home.dataFolder()});
  if (!_databases) return;
  if (_database != _preparedDatabase) _databases->drop(_database);
  _database = _databases->copyOf(_preparedDatabase);
}

void RaceGround::changeContact(const std::string& guid) { addContact(guid, changedContact(guid)); }

RaceContact RaceGround::changedContact(const std::string& guid) {
  return {"Renamed " + guid, {"+493055503" + guid.substr(1) + "0"}};
}

Arguments RaceGround::command(Arguments arguments) const {
  if (_databases) {
    const Arguments flags = {"--store", "postgresql", "--postgresql-connection", _databases->connection(_database)};
    arguments.insert(arguments.end(), flags.begin(), flags.end());
  }
  return pellorCommand(arguments);
}

std::string RaceGround::readList() const {
  const ProgramResult result = Program(_home, command({"--json", "list"})).finish();
  return result.exitCode == 0 ? result.output : "";
}

std::size_t RaceGround::maxPages() const { return _shape == RaceListShape::roomy ? MostRoomyPages : MostNarrowPages; }

std::vector<std::string> RaceGround::contactFriends() const {
  std::vector<std::string> found;
  for (int number = 1; number <= FriendContacts; ++number) {
    const std::string guid = "c" + std::to_string(number);
    if (!placesOf(_list, guid).empty()) found.push_back(guid);
  }
  return found;
}

const std::map<std::string, RaceContact>& RaceGround::newcomers() {
  static const std::map<std::string, RaceContact> known = [] {
    std::map<std::string, RaceContact> made;
    for (int number = 1; number <= NewContacts; ++number) {
      const std::string guid = "a" + std::to_string(number);
      made[guid] = contactOf(guid);
    }
    for (const char* destination : {"+49305550901", "+49305550902"}) made[destination] = {"", {destination}};
    return made;
  }();
  return known;
}

}  // namespace pellor
