// How contacts are kept in the rows of the contact index.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/IndexedContact.h"
#include "pellor/linux/sqlite/SQLiteStatements.h"

namespace pellor {

/// The columns that `cardOfRow` reads, in its order.
inline constexpr std::string_view CardColumns =
    "kind, given, family, additional, prefix, suffix, formatted, nickname, organization, note, derived, phones, emails,"
    " favorite, place, links, antilinks, photo";

/// The columns that `contactOfRow` reads.
std::string contactColumns();

/// The card of the current row, whose columns begin at `column`. The UID stays where it is: in the row's claim.
ContactCard cardOfRow(const SQLiteStatement& row, int column);

/// The contact of a row of record identifier, GUID, linked set and CardColumns.
IndexedContact contactOfRow(const SQLiteStatement& row);

/// A card's values in the order of CardColumns, ready to be bound. Texts that are absent are bound as null.
class CardBinding {
 public:
  explicit CardBinding(const ContactCard& card);
  /// Binds from that parameter on and gives the next one. The binding has to outlive the step.
  int bindTo(SQLiteStatement& statement, int parameter) const;

 private:
  const ContactCard& _card;
  std::string _phones;
  std::string _emails;
  std::string _links;
  std::string _antiLinks;
};

std::vector<std::string> namesOfColumn(const std::string& text);

}  // namespace pellor
