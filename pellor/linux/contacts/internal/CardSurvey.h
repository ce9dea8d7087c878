// What the cards of a source give, without an index.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pellor/linux/contacts/CardSource.h"

namespace pellor {

struct CardSurvey {
  std::uint64_t contacts = 0;         ///< cards that are contacts
  std::vector<std::string> unusable;  ///< the others, a line each: file, card and reason
};

/// Reads and parses all cards of the source. Throws CardSourceError when the source gives none, and as
/// `readContactCard` does. Any thread that may use the source.
CardSurvey surveyCards(CardSource& source);

}  // namespace pellor
