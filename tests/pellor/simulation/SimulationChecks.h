// What must hold in a simulated world when nothing is left to do.
#pragma once

#include "tests/pellor/simulation/SimulationWorld.h"

namespace pellor {

/// Every process shows, slot by slot and page by page, what is stored; its friends are what their contacts say; its
/// answers, of places, identities and statuses, agree with a look at every slot.
void checkAgreement(SimulationWorld& world);

/// All load the list again, and nothing comes of it.
void checkReloadsAreQuiet(SimulationWorld& world);

}  // namespace pellor
