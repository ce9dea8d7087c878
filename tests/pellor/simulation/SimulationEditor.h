// The person at a process of the simulated world.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "tests/pellor/simulation/SimulationWorld.h"

namespace pellor {

/// Does what apps do, at random, checks what they are answered at once, and records what it edits.
class SimulationEditor {
 public:
  explicit SimulationEditor(SimulationWorld& world) : _world(world) {}

  /// One edit of the list, or none if it turns out that there is nothing to edit.
  void edit(Member& author);
  /// Anything else that apps do: loads, saves, settings, reachability, questions.
  void doOther(Member& member);
  /// At rest: takes out friends who are there twice, until each is there once.
  void removeDoubles(Member& member);

 private:
  using Operation = void (SimulationEditor::*)(Member&);
  struct Weighted {
    std::uint64_t weight;
    Operation operation;
  };
  template <std::size_t Count>
  void doOneOf(const Weighted (&operations)[Count], Member& member);

  // Edits
  void add(Member& author);
  void addToGroup(Member& author);
  void setAtPosition(Member& author);
  void remove(Member& author);
  void moveWithinPage(Member& author);
  void moveBetweenPages(Member& author);
  void purge(Member& author);
  void title(Member& author);
  void changePerson(Member& author);
  void refresh(Member& author);

  // Others
  void reload(Member& member);
  void save(Member& member);
  void settle(Member& member);
  void postFromOutside(Member& member);
  void disableRefresh(Member& member);
  void changeSettingsOfOtherDomain(Member& member);
  void setServiceName(Member& member);
  void askForStatus(Member& member);
  void askForStatuses(Member& member);
  void lookUp(Member& member);

  std::uint64_t below(std::uint64_t limit) { return _world.below(limit); }
  bool chance(std::uint64_t oneIn) { return _world.chance(oneIn); }
  std::shared_ptr<PLPerson> anyStranger(Member& author);
  std::shared_ptr<PLFriendGroup> anyGroup(Member& author);
  std::string anyText(const std::string& kind);
  void recordAdded(Member& author, const PlainList& before, const PLPerson& person);
  void recordMoved(Member& author, const PlainList& before);

  SimulationWorld& _world;
  std::uint64_t _lastText = 0;
};

}  // namespace pellor
