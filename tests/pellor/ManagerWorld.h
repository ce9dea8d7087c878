// Processes that share a simulated world, each with the manager of one domain, and friend lists as text.
//
// A list reads "Ann,-,Bob|-,-,-": two groups of three slots, of which two hold a friend. Ann is "ann@example.org"; a
// contact of hers, once there is one, has the GUID "guid-Ann".
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/SimulatedScheduler.h"
#include "pellor/testing/SimulatedWorld.h"

namespace pellor {

inline const std::string OtherDomain = "org.tapnote.Other";

std::string mailOf(std::string name);
std::string guidOf(const std::string& name);

/// A contact of that name with the one address that goes with it.
TestContact contactNamed(const std::string& name);

/// How a friend without a contact is stored at rest: refreshing against the contacts changes nothing in it. "Ann" has
/// no GUID, "Ann#" has hers.
Dictionary storedForm(const std::string& name);
/// A stored list, of "Ann,-,Bob|-,-,-".
Array storedList(const std::string& text);
/// The list as a store has it that had `before` there: chunks of equal elements are one object.
LongArray storedAfter(const std::optional<Value>& before, const Array& list);
/// A stored list as text; with `groupSize` 0 without groups. A friend without a name is "?".
std::string textOf(const Value& list, std::uint64_t groupSize);
/// "Ann+ Bob->": the persons of a log with what happened to them: + added, ~ updated, - deleted, > moved.
std::string textOf(const PLChangeLog& log);

/// A process with the manager of its domain, once it is started.
class ManagerProcess {
 public:
  /// `adjust` gets the platform before it is installed.
  ManagerProcess(
      SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler,
      std::string domain = std::string(TapnoteDomain), const std::function<void(Platform&)>& adjust = [](Platform&) {});
  ~ManagerProcess();

  Process& process() { return *_process; }
  const std::string& domain() const { return _domain; }

  /// Makes the manager, which loads its list.
  ManagerProcess& start();
  PLFriendsManager& manager() { return *_manager; }
  const std::shared_ptr<PLFriendsManager>& sharedManager() const { return _manager; }
  void releaseManager();
  /// Ends the process on the spot: what is queued is lost.
  void kill();

  /// Runs `work` as this process.
  template <class Work>
  auto run(Work&& work) {
    const Process::Scope scope(*_process);
    return work();
  }

  /// As `Process::settle`.
  bool settle(double seconds = 60) {
    return run([&] { return _process->settle(seconds); });
  }

  // Edits, as this process

  /// The person of the contact, or of the address where there is none.
  std::shared_ptr<PLPerson> person(const std::string& name);
  bool add(const std::string& name);
  bool add(const std::shared_ptr<PLPerson>& person);
  void set(const std::shared_ptr<PLPerson>& person, std::uint64_t group, std::uint64_t position);
  void remove(std::uint64_t group, std::uint64_t position);
  void setTitle(std::uint64_t group, const std::string& title);

  // What there is

  std::shared_ptr<PLFriendGroup> group(std::uint64_t index) { return _manager->friendGroups().at(index); }
  std::shared_ptr<PLPerson> friendAt(std::uint64_t group, std::uint64_t position);
  /// The groups as text.
  std::string list();
  /// The titles of the groups: "Family|-|Work".
  std::string titles();

  /// Log lines, and notifications as "changed Ann+", "groups changed", "title changed" and "statuses {…}", oldest
  /// first; they are forgotten.
  std::vector<std::string> takeEvents(bool withLogLines = true);
  /// The same without log lines.
  std::vector<std::string> takeNotifications() { return takeEvents(false); }
  /// How many log lines since the last taking hold `text`.
  std::size_t logged(std::string_view text) const;

 private:
  struct Events;

  std::shared_ptr<Events> _events;
  const std::string _domain;
  std::unique_ptr<Process> _process;
  std::vector<std::shared_ptr<Observation>> _observations;
  std::shared_ptr<PLFriendsManager> _manager;
};

class ManagerTest : public ::testing::Test {
 protected:
  ManagerTest() = default;

  /// One more process with its manager.
  std::unique_ptr<ManagerProcess> launch(const std::string& domain = std::string(TapnoteDomain));
  /// The same from that stored list, at rest; what it did until then is forgotten.
  std::unique_ptr<ManagerProcess> launchWith(const std::string& list);
  /// One more process without a manager.
  std::unique_ptr<ManagerProcess> makeProcess(const std::string& domain = std::string(TapnoteDomain));
  /// Runs everything, until nothing is left to do and no timer is set.
  void rest();
  void advance(double seconds) { scheduler->advance(seconds); }

  /// Adds contacts, as one change.
  void contacts(const std::vector<std::string>& names);

  void setSetting(std::string_view key, Value value, const std::string& domain = std::string(TapnoteDomain)) {
    world.preferences().setValue(key, std::move(value), domain);
  }
  void setGroups(std::uint64_t count, std::uint64_t size, const std::string& domain = std::string(TapnoteDomain));
  void store(const std::string& list, const std::string& domain = std::string(TapnoteDomain));
  std::string stored(std::uint64_t groupSize = 0, const std::string& domain = std::string(TapnoteDomain));
  std::optional<Value> storedValue(std::string_view key, const std::string& domain = std::string(TapnoteDomain)) {
    return world.preferences().value(key, domain);
  }
  void storeTitles(const std::vector<std::string>& titles, const std::string& domain = std::string(TapnoteDomain));
  std::string storedTitles(const std::string& domain = std::string(TapnoteDomain));
  /// The keys of each write since the last taking.
  std::vector<std::vector<std::string>> takeWrites();
  /// Tells all processes, as another one that wrote, that the list is another one.
  void postListChanged() { world.bus().post(PLFriendsChangedExternallyNotification); }

  SimulatedWorld world;
  std::shared_ptr<SimulatedScheduler> scheduler = std::make_shared<SimulatedScheduler>(1);
};

}  // namespace pellor
