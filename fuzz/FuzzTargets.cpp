#include <algorithm>
#include <array>

#include "fuzz/FuzzTarget.h"

namespace pellor::fuzzing {
namespace {

constexpr std::array Targets{
    FuzzTarget{"value", fuzzValue},
    FuzzTarget{.name = "archive", .run = fuzzArchive, .hasWorld = true},
    FuzzTarget{.name = "stored-list", .run = fuzzStoredList, .hasWorld = true},
    FuzzTarget{.name = "history", .run = fuzzHistory, .hasWorld = true},
    FuzzTarget{"merge", fuzzMerge},
    FuzzTarget{"cards", fuzzCards},
    FuzzTarget{"destination", fuzzDestination},
    FuzzTarget{"configuration", fuzzConfiguration},
    FuzzTarget{"exported-list", fuzzExportedList},
    FuzzTarget{"arguments", fuzzArguments},
    FuzzTarget{"bus-file", fuzzBusFile},
#ifdef PELLOR_FUZZES_DEVICES
    FuzzTarget{"device-message", fuzzDeviceMessage},
#endif
};

}  // namespace

std::span<const FuzzTarget> fuzzTargets() { return Targets; }

const FuzzTarget* fuzzTarget(std::string_view name) {
  const auto* const found = std::ranges::find(Targets, name, &FuzzTarget::name);
  return found == Targets.end() ? nullptr : found;
}

}  // namespace pellor::fuzzing
