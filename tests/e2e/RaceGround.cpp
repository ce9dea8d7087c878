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

// With the times of files and folders: contacts that are as they were are not read again.
void copyFolder(const fs::path& from, const fs::path& to) {
  fs::create_directories(to);
  for (const auto& entry : fs::directory_iterator(from)) {
    const fs::path copy = to / entry.path().filename();
    if (entry.is_directory()) {
      copyFolder(entry.path(), copy);
    } else if (entry.is_regular_file()) {
      fs::copy_file(entry.path(), copy);
      fs::last_write_time(copy, fs::last_write_time(entry.path()));
    }
  }
  fs::last_write_time(to, fs::last_write_time(from));
}

RaceContact contactOf(char kind, int number) {
  const int area = kind == 'c' ? 5550100 : 5550200;
  return {"Person " + std::string(1, kind) + std::to_string(number), {"+4930" + std::to_string(area + number)}};
}

std::string lineOf(const RaceContact& contact) { return "TEL:" + contact.destinations.front() + "\n"; }

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
  addContacts();
  prepare();
  const auto list = raceListIn(readList());
  if (!list) throw std::runtime_error("the list of the races could not be prepared");
  _list = *list;
  copyFolder(_home.dataFolder(), _home / "prepared");
}

RaceGround::~RaceGround() {
  if (_databases && _database != _preparedDatabase) _databases->drop(_database);
}

void RaceGround::addContacts() const {
  const auto add = [this](char kind, int number) {
    const RaceContact contact = contactOf(kind, number);
    _home.addContact(kind + std::to_string(number), contact.name, lineOf(contact));
  };
  for (int number = 1; number <= FriendContacts; ++number) add('c', number);
  for (int number = 1; number <= NewContacts; ++number) add('a', number);
}

void RaceGround::prepare() const {
  for (const Arguments& arguments : _shape == RaceListShape::roomy ? RoomyList : NarrowList) run(arguments);
}

void RaceGround::run(const Arguments& arguments) const {
  const ProgramResult result = Program(_home, command(arguments)).finish();
  if (result.exitCode != 0) throw std::runtime_error(arguments.front() + ": " + result.errors);
}

void RaceGround::reset() {
  fs::remove_all(_home.dataFolder());
  copyFolder(_home / "prepared", _home.dataFolder());
  if (!_databases) return;
  if (_database != _preparedDatabase) _databases->drop(_database);
  _database = _databases->copyOf(_preparedDatabase);
}

void RaceGround::changeContact(const std::string& guid) {
  const RaceContact contact = changedContact(guid);
  _home.addContact(guid, contact.name, lineOf(contact));
}

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
    for (int number = 1; number <= NewContacts; ++number) made["a" + std::to_string(number)] = contactOf('a', number);
    for (const char* destination : {"+49305550901", "+49305550902"}) made[destination] = {"", {destination}};
    return made;
  }();
  return known;
}

}  // namespace pellor
