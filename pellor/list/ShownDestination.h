// The number or address under which a friend is shown.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/friends/PLPerson.h"

namespace pellor {

/// The user's choice if the friend has it now; else of the friend's card, which its GUID names, the preferred or first
/// number, else the preferred or first address; without a card the primary destination. Absent without any. In
/// canonical form. Main queue.
std::optional<std::string> destinationShownOf(const PLPerson& person);

/// Runs `work`, in which `destinationShownOf` asks the contacts no more for these friends: they were read at once. Null
/// stands for an empty slot. Not to be nested.
void withCardsOf(const std::vector<std::shared_ptr<PLPerson>>& friends, const std::function<void()>& work);

}  // namespace pellor
