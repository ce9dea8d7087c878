// Keys by which texts are found, whatever their case and accents, by ICU.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/TextService.h"

namespace pellor {

/// The words of a text, in their order: what stands between blanks and punctuation. Beyond case, accents and width
/// their keys pass over what people leave out who lack a letter: dotless i is i, schwa e, eng n, thorn th, and the
/// apostrophes that are letters are nothing. The other spelling of ä, ö, ø, ü and å has an e behind the plain letter,
/// or a second a. Any thread.
std::vector<SearchWord> searchWords(std::string_view text);

/// Names the collation that made the keys: those of different versions do not compare.
std::string collationVersion();

}  // namespace pellor
