// The cards of one file, and which of them the index has already.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/EVCardContact.h"

namespace pellor {

/// The largest text that is taken for one card: a card with a picture has some hundred kilobytes.
inline constexpr std::size_t CardSizeLimit = std::size_t{8} * 1024 * 1024;

/// What a file holds that is no contact.
struct CardFault {
  std::size_t number = 0;   ///< of the card in its file, from 1 on; 0 for the whole file
  std::string name;         ///< of the card, as far as it can be read; may be empty
  std::string reason;       ///< "it has no END:VCARD"
  bool isRepeat = false;    ///< whether the contact is there, by another card of the file
  bool isReplaced = false;  ///< whether an earlier state of the card, or of the file, is still a contact
};

/// "card 3 (Anna): it has no END:VCARD", or the reason alone.
std::string textOf(const CardFault& fault);

/// A card as it was when its file was read last.
struct StoredCard {
  std::int64_t row = 0;
  std::int32_t record = 0;
  std::int64_t textHash = 0;
  std::int64_t valueHash = 0;
  std::string claim;
  bool hasUID = false;        ///< whether the claim is the card's UID
  std::string formattedName;  ///< empty without one
};

/// A card of a file.
struct FileCard {
  std::optional<ContactCard> card;   ///< absent where nothing has changed since it was stored
  std::vector<std::string> remarks;  ///< what is odd about it
  std::int64_t textHash = 0;
  std::int64_t valueHash = 0;
  std::string claim;  ///< what it is known by if no other card claims it
  bool hasUID = false;
  std::string ownName;                  ///< what it is known by if another card does; unless nothing has changed
  std::optional<std::size_t> former{};  ///< the place among the stored cards of what it was; none for a new card
};

struct CardFileReading {
  std::vector<FileCard> cards;  ///< in the order of the file
  std::vector<CardFault> faults;
  std::vector<std::size_t> gone;  ///< places of the stored cards that the file has no more
};

/// Reads a file, and parses the cards with a text that is not among `stored`.
///
/// A card is known by its UID. One without is known by its names and values (`cardValueHash`), so that neither its
/// place nor other cards of the file matter; but the one card of a file by the file's name. It keeps that name when
/// other cards join it, as long as its values, else its formatted name tell which one it is; nobody else gets it while
/// a card of that time is there.
///
/// Of cards with the same UID, or without one, and with the same values one is a contact. What was good of a card that
/// cannot be read stays, if UID or name tell which one it was; of all cards where the file ends inside one: somebody
/// may just be writing it.
///
/// Throws as `readContactCard` does. Any thread.
CardFileReading readCardFile(std::string bytes, std::string_view fileName, const std::vector<StoredCard>& stored);

/// A hash of a card's names, numbers and addresses in whatever order. Notes, labels, marks, links and pictures do not
/// count.
std::int64_t cardValueHash(const ContactCard& card);

}  // namespace pellor
