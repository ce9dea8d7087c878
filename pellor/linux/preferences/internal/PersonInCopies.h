// Copies of the store, of which nothing is to tell of a person.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/platform/PersonalTraces.h"

namespace pellor {

/// How many copies of a folder tell, or told, of a person.
struct ToldCopies {
  std::size_t count = 0;
  std::string problem = {};  ///< why one of them still does; empty: none does
};

/// Looks at all copies, and has the person learn from those that are whole. Any thread.
ToldCopies learnFromCopies(const StoreCopies& copies, ForgottenTraits& person);

/// Takes the person out of all copies. They keep their dates and versions; one that is damaged is removed where it
/// mentions the person. Any thread.
ToldCopies takeOutOfCopies(const StoreCopies& copies, const ForgottenTraits& person);

}  // namespace pellor
