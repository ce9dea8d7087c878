// Cards that are made of the rows of a table.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/OfferedCard.h"

namespace pellor {

/// Whether the first row names columns of contacts (see CsvRows). The encoding does not matter.
bool isContactTable(std::string_view text);

/// A vCard 4.0 without UID of each row below the first. Columns go by their names, English or German: parts of the
/// name, nickname, organization, notes, and numbers and addresses with their kinds. Other columns are not read. A row
/// that gives no name, number or address, or that does not fit the first one, has a problem. Any thread.
std::vector<OfferedCard> tableCards(std::string_view text);

}  // namespace pellor
