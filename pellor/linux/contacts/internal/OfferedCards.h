// The cards that a file offers for the contacts.
#pragma once

#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/OfferedCard.h"

namespace pellor {

/// The cards of a file of vCards (2.1 to 4.0), or those that the rows of a table give (`tableCards`). Bytes are UTF-8,
/// UTF-16, or what its lines name (`asUtf8Card`). Of a card nothing but encoding and ends of lines is changed. Never
/// empty: a file that holds neither is one entry with a problem. Any thread.
std::vector<OfferedCard> offeredCards(std::string bytes);

}  // namespace pellor
