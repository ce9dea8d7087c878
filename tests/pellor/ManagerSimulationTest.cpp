// Whole worlds under many seeds: three processes that edit a list at once, with contacts that change, stores and buses
// that fail and processes that are killed, come to rest with the same list, and none of their edits is lost.
//
// PELLOR_WORLDS=<count>, or else PELLOR_SEEDS=<count>, sets how many worlds all tests run in all;
// PELLOR_SEED_MINUTES=<minutes> lets each part of them run for so long.
#include <gtest/gtest.h>

#include "tests/pellor/SeededTest.h"
#include "tests/pellor/simulation/EditJudge.h"
#include "tests/pellor/simulation/EditOrders.h"
#include "tests/pellor/simulation/SimulationChecks.h"
#include "tests/pellor/simulation/SimulationEditor.h"
#include "tests/pellor/simulation/SimulationFaults.h"
#include "tests/pellor/simulation/SimulationWorld.h"

namespace pellor {
namespace {

constexpr std::size_t MostEditsToOrder = 6;

void checkEdits(const Round& round) {
  if (const auto thing = unexplainedThing(round)) ADD_FAILURE() << *thing << "\n" << round.text();
  if (round.edits.size() > MostEditsToOrder || !round.canBeOrdered()) return;
  if (!isExplainedByAnOrder(round)) ADD_FAILURE() << "no order of the edits explains the list\n" << round.text();
}

class Simulation {
 public:
  explicit Simulation(std::uint64_t seed, SimulationWorld::Sizes sizes)
      : _world(seed, sizes), _faults(_world), _editor(_world) {}

  /// Several rounds, in each of which that many edits are made by whichever processes.
  void run(std::uint64_t fewestEdits, std::uint64_t mostEdits) {
    _world.rest();
    for (auto rounds = 2 + _world.below(4); rounds > 0 && !::testing::Test::HasFailure(); --rounds) {
      editAtOnce(fewestEdits + _world.below(mostEdits - fewestEdits + 1));
      checkAgreement(_world);
      if (_world.chance(3) && !_world.hasSeveralSizes()) checkReloadsAreQuiet(_world);
      if (_world.chance(4)) restartOne();
    }
  }

 private:
  void editAtOnce(std::uint64_t count) {
    const bool isDisturbed = _world.chance(2);
    const bool doContactsChange = _world.chance(3);
    if (_world.chance(4)) _world.editAsLaterVersion();
    _world.beginRound(isDisturbed);
    while (count-- > 0) {
      _editor.edit(_world.anyMember());
      if (_world.chance(2)) _editor.doOther(_world.anyMember());
      if (isDisturbed && _world.chance(2)) _faults.disturb();
      if (doContactsChange && _world.chance(4)) _world.changeContacts();
      _world.run(_world.below(8));
    }
    _faults.calm();
    checkEdits(_world.endRound());
    _editor.removeDoubles(_world.anyMember());
  }

  void restartOne() {
    _world.restartOne();
    checkAgreement(_world);
  }

  SimulationWorld _world;
  SimulationFaults _faults;
  SimulationEditor _editor;
};

class ManagerSimulationTest : public SeededTest {
 protected:
  /// `tenths`: how many of ten worlds are of this kind.
  void runWorlds(std::uint64_t tenths, std::uint64_t fewestEdits, std::uint64_t mostEdits,
                 SimulationWorld::Sizes sizes = SimulationWorld::Sizes::one) {
    const std::uint64_t all = countOf("PELLOR_WORLDS", seedCount(6'000, 600), seedCount(6'000, 600));
    forEachSeed((all * tenths + 9) / 10,
                [&](std::uint64_t seed) { Simulation(seed, sizes).run(fewestEdits, mostEdits); });
  }
};

TEST_P(ManagerSimulationTest, AnOrderOfFewEditsExplainsTheList) { runWorlds(5, 1, MostEditsToOrder); }

TEST_P(ManagerSimulationTest, NoneOfManyEditsIsLost) { runWorlds(4, 8, 30); }

TEST_P(ManagerSimulationTest, PagesOfSeveralSizesLoseNobody) { runWorlds(1, 4, 20, SimulationWorld::Sizes::several); }

INSTANTIATE_TEST_SUITE_P(Seeds, ManagerSimulationTest, ::testing::Range(std::uint64_t{0}, SeededTest::PartCount));

}  // namespace
}  // namespace pellor
