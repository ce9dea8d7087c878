// The picture in a card. It is looked for in the card's text: the parser would take most of its time for it.
#pragma once

#include <optional>
#include <string_view>

#include "pellor/platform/ContactPhoto.h"

namespace pellor {

/// Whether the card has a PHOTO with a value. Any thread; linear time.
bool hasPhoto(std::string_view card);

/// The card's first picture: version 2.1 to 4.0, as base64, as data: URI, or where it is. Absent without one, and for
/// one that is written in no such way. Any thread; linear time.
std::optional<ContactPhoto> photoOfCard(std::string_view card);

}  // namespace pellor
