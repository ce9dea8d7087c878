// A contact as its vCard states it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pellor {

/// A phone number or an e-mail address. The label is the first TYPE that says a place or a device ("home", "cell"), in
/// lower case; empty without one.
struct CardValue {
  std::string label;
  std::string value;
  friend bool operator==(const CardValue&, const CardValue&) = default;
};

enum class CardKind { person, organization, other };

/// Texts are trimmed, without control characters, and absent rather than empty.
struct ContactCard {
  std::optional<std::string> uid;
  std::optional<std::string> givenName;
  std::optional<std::string> familyName;
  std::optional<std::string> additionalNames;
  std::optional<std::string> namePrefix;
  std::optional<std::string> nameSuffix;
  std::optional<std::string> formattedName;
  std::optional<std::string> nickname;  ///< the first one
  std::optional<std::string> organization;
  std::optional<std::string> note;
  /// Whether the card has no name parts of its own: given and family name are then taken from the formatted name.
  bool nameIsDerived = false;
  CardKind kind = CardKind::person;
  // The preferred ones first (PREF), else in the card's order.
  std::vector<CardValue> phones;
  std::vector<CardValue> emails;
  bool hasPhoto = false;
  bool isFavorite = false;
  int favoriteOrder = 0;               ///< from 1 on; 0 when the favorite has no place of its own
  std::vector<std::string> links;      ///< names of other cards of the same person
  std::vector<std::string> antiLinks;  ///< names of cards that are never linked with this one
  friend bool operator==(const ContactCard&, const ContactCard&) = default;
};

struct CardReading {
  std::optional<ContactCard> card;   ///< absent when the text holds no card
  std::string problem;               ///< why it does not
  std::vector<std::string> remarks;  ///< what is odd about a card that was read; may hold parts of its text
};

/// The first card of a text (`cardPieces`): vCard 2.1, 3.0 or 4.0. Lines that are no UTF-8 are read as `asUtf8Card`
/// does. Throws std::runtime_error when the parser cannot be loaded. Any thread.
CardReading readContactCard(std::string_view text);

}  // namespace pellor
