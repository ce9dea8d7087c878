// Where a race takes place: a user's folders with contacts and a prepared list, and a database where that holds the
// list.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/cli/Program.h"
#include "tests/e2e/RaceList.h"

namespace pellor {

/// Databases of a server that runs as long as the object.
class RaceDatabases {
 public:
  virtual ~RaceDatabases() = default;
  /// Makes an empty database and gives its name.
  virtual std::string make() = 0;
  /// Makes a copy of one that nobody uses and gives its name.
  virtual std::string copyOf(const std::string& name) = 0;
  virtual void drop(const std::string& name) = 0;
  virtual std::string connection(const std::string& name) const = 0;
};

/// Whether the adapter is built.
bool hasRaceDatabases();
/// Starts a server; null where the adapter is not built.
std::unique_ptr<RaceDatabases> makeRaceDatabases();

/// What list is prepared.
enum class RaceListShape {
  roomy,   ///< pages of all kinds: full, half full, empty, with one friend; room for more
  narrow,  ///< two pages, the last ones, with a single free slot
};

class RaceGround {
 public:
  /// Prepares the list with the program. `databases` null: in the data folder.
  RaceGround(RaceListShape shape, RaceDatabases* databases);
  ~RaceGround();
  RaceGround(const RaceGround&) = delete;
  RaceGround& operator=(const RaceGround&) = delete;

  /// Makes everything as it was prepared.
  void reset();
  /// Gives the contact of a friend a new name and number; `contact` is what it has then.
  void changeContact(const std::string& guid);
  static RaceContact changedContact(const std::string& guid);

  const Home& home() const { return _home; }
  /// The arguments that make `pellor` use it.
  std::vector<std::string> command(std::vector<std::string> arguments) const;
  /// The answer of `pellor --json list`, empty if that failed.
  std::string readList() const;

  /// The prepared list, and how many pages it may have.
  const RaceList& list() const { return _list; }
  std::size_t maxPages() const;
  /// Friends with a contact.
  std::vector<std::string> contactFriends() const;
  /// Who may be added: keys, and their contacts.
  static const std::map<std::string, RaceContact>& newcomers();

 private:
  void addContact(const std::string& guid, const RaceContact& contact) const;
  void run(const std::vector<std::string>& command) const;

  const RaceListShape _shape;
  RaceDatabases* const _databases;
  const Home _home;
  std::string _preparedDatabase;
  std::string _database;
  RaceList _list;
};

}  // namespace pellor
