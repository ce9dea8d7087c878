// The names of a contact: how it is shown and by what it is found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/contacts/internal/EVCardContact.h"

namespace pellor {

/// The full name of a person, the surname first when `surnameFirst` says that the locale writes names so or when the
/// name is written in Chinese, Japanese or Korean characters (these without a blank in such a locale). Additional names
/// follow the given name; a Vietnamese one stands before it where the surname is first. Prefix and suffix stand before
/// and behind it all. The card's formatted name where it has no name parts, and for an organisation; else its nickname,
/// else the organisation. Absent when there is none. A name of parts is cut where one of their names would be
/// (pellor/linux/text/TextLimits.h).
std::optional<std::string> compositeName(const ContactCard& card, bool surnameFirst);

/// Takes given name and surname of a person from the formatted name, of a card that has nothing else: the surname first
/// as `compositeName` says, else last, with its particles. Titles, abbreviated at either end, belong to neither. Other
/// cards stay as they are.
void deriveNames(ContactCard& card, bool surnameFirst);

/// All names by which the contact is matched: the full name in either order, with and without prefix and suffix, or
/// without name parts the organisation; the formatted name and the nickname.
std::vector<std::string> searchableNames(const ContactCard& card);

/// What the contact is called, for a search by words: as above, but the organisation only where there is no other name,
/// and the surname before the given name only where both are one word.
std::vector<std::string> ownNames(const ContactCard& card);

}  // namespace pellor
