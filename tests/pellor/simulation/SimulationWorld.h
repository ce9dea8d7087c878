// Three processes that share a list, its contacts and its store, everything that may go wrong between them, and what
// they edited.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "pellor/friends/PLDestinationStatus.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/SimulatedWorld.h"
#include "pellor/testing/TestContact.h"
#include "tests/pellor/simulation/Edits.h"

namespace pellor {

/// A process of the world with its manager. One that is started in place of another has a number of its own.
class Member {
 public:
  /// `interrupt` is called in the middle of each write, and after it before the manager knows.
  Member(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler, std::uint64_t number,
         const std::function<void()>& interrupt);
  ~Member();

  std::uint64_t number() const { return _number; }
  Process& process() { return *_process; }
  PLFriendsManager& manager() { return *_manager; }
  const std::vector<std::shared_ptr<PLFriendGroup>>& groups() const { return _manager->friendGroups(); }
  /// What the manager took over or wrote last.
  StoredVersions known() const;
  /// What is stored now.
  StoredVersions stored();
  /// How many friends it took out because they were there twice, since it was asked last.
  std::size_t takeDeduplications();
  /// Ends it on the spot.
  void kill();

  DestinationStatuses statuses;           ///< that were announced
  std::set<std::string> dueDestinations;  ///< that will have been announced at rest

 private:
  class Store;

  const std::uint64_t _number;
  const std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
  std::unique_ptr<Process> _process;
  std::shared_ptr<Store> _store;
  std::shared_ptr<PLFriendsManager> _manager;
  std::shared_ptr<Observation> _observation;
};

class SimulationWorld {
 public:
  enum class Sizes { one, several };
  /// `several`: each process has pages of a size of its own.
  explicit SimulationWorld(std::uint64_t seed, Sizes sizes = Sizes::one);

  std::uint64_t below(std::uint64_t limit) { return _random() % limit; }
  bool chance(std::uint64_t oneIn) { return below(oneIn) == 0; }
  std::mt19937_64& random() { return _random; }

  SimulatedWorld& services() { return _world; }
  const std::vector<std::unique_ptr<Member>>& members() const { return _members; }
  Member& anyMember() { return *_members[below(_members.size())]; }

  // --- Time ---

  /// A few tasks of whichever processes, after each of which every list is sound.
  void run(std::uint64_t steps);
  /// Until nothing is left to do. Refreshing is enabled everywhere.
  void rest();

  // --- Contacts: one for each address, with a number if it has any ---

  /// The contacts' GUIDs by their address.
  const std::map<FriendName, std::string>& contacts() const { return _contacts; }
  FriendName anyAddress();
  /// New names, new records, none any more, other identifiers for all.
  void changeContacts();

  /// Takes about half of the contacts away, until they are brought back.
  void loseContacts();
  void bringContactsBack();
  bool areContactsReadable() const { return _areContactsReadable; }
  void setContactsReadable(bool areReadable);

  // --- Faults ---

  /// Ends a process on the spot, and starts another.
  void killSomeone();
  /// To be told before a write of which its process is not told what became of it.
  void noteUntoldWrites() { _round.hasUntoldWrites = true; }
  /// To be told when the store is replaced by its copy.
  void noteReplacedStore() { _round.wasStoreReplaced = true; }

  // --- Rounds of edits ---

  /// At rest: a later version of the library keeps something of a friend under a key of its own.
  void editAsLaterVersion();
  /// Begins with what is there at rest. From then on everything may go wrong if `isDisturbed`.
  void beginRound(bool isDisturbed);
  /// Remembers an edit that was just made.
  void record(const Member& author, Edit edit);
  /// To be told of each friend who is added: one whose contact changed while some process may have looked it up counts
  /// as relinked, and so does one without a name: a record will change all that tells who it is.
  void noteAdded(const FriendName& name, bool isNamed);
  /// To be told when an edit took out one of a friend who was there twice.
  void noteOneOfTwoTaken() { _round.hasTakenOneOfTwo = true; }
  /// Waits for the process's writes: its edits are acknowledged if it says so. An addition may have found no room.
  void settle(Member& member);
  /// In a world without faults: waits until everything is written and everybody has looked, and tells what happened.
  Round endRound();
  bool isDisturbed() const { return _isDisturbed; }
  bool hasSeveralSizes() const { return _sizes == Sizes::several; }

  /// Ends one process in good order, and starts another.
  void restartOne();

  /// Whether the service gives answers of its own (`statusOf`), else every destination is valid.
  bool hasScript() const { return _hasScript; }
  /// What the service says of a destination, in all its answers; unspecified: nothing.
  static DestinationStatus statusOf(const std::string& destination);

 private:
  double anyStart();
  std::unique_ptr<Member> newMember();
  void addContact(const FriendName& address, const std::optional<std::string>& name = std::nullopt);
  void replaceContact(const FriendName& address);
  void addFavorites();
  std::vector<SimulatedIdentityService::AnswerPart> answer(const SimulatedIdentityService::Query& query);
  bool step();
  void interrupt();
  void acknowledge(Member& member);
  void checkInvariants();

  std::mt19937_64 _random;
  std::shared_ptr<SimulatedScheduler> _scheduler;
  SimulatedWorld _world;
  std::map<FriendName, std::string> _contacts;
  std::map<FriendName, TestContact> _lostContacts;
  bool _areContactsReadable = true;
  std::set<FriendName> _changed;  // whose contacts did, at some time
  std::uint64_t _lastContact = 0;
  std::uint64_t _lastMember = 0;
  std::vector<std::unique_ptr<Member>> _members;
  const bool _hasScript;
  const Sizes _sizes;
  std::uint64_t _lastLater = 0;
  bool _isDisturbed = false;
  Round _round;
  std::set<std::size_t> _refused;  // additions of which one or more found no room
};

}  // namespace pellor
