// Cards of files that are copied into the contacts folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace pellor {

struct OfferedCard;

/// Where a card comes from.
struct CardOrigin {
  std::string file;
  std::size_t number = 0;  ///< of the card in the file, from 1 on; 0 where the line says it, and for the whole file
  std::size_t line = 0;    ///< of the row of a table, from 1 on; 0 for anything else
  std::string name;        ///< of the person; may be empty
};

struct ImportedCard {
  CardOrigin origin;
  std::string guid;         ///< its UID
  std::string file;         ///< in the contacts folder
  bool isReplaced = false;  ///< whether another state of the contact was there
};

struct KnownCard {
  CardOrigin origin;
  std::string guid;      ///< the UID of the contact that is there; empty where it has none
  bool differs = false;  ///< whether that has the card's UID and other content
};

struct LeftOutCard {
  CardOrigin origin;
  std::string reason;
};

struct ContactImportResult {
  std::vector<ImportedCard> imported;
  std::vector<KnownCard> known;
  std::vector<LeftOutCard> leftOut;
};

/// Why nothing can be imported.
class ContactImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ContactImportOptions {
  std::filesystem::path folder;
  bool makesFolder = false;    ///< when it is missing; made with the first card
  bool replacesKnown = false;  ///< whether a contact that differs gets the content of the card with its UID
  bool isDry = false;          ///< whether nothing is written: the result tells what would be imported
  /// Told now and then how many of the folder's files were read, and how many cards of a file were taken. May be null.
  std::function<void(std::size_t done, std::size_t total)> readingProgress = {}, takingProgress = {};
};

/// Copies cards into the contacts folder, one a file, and doubles nobody:
///
/// - A card with a UID is the contact that has it, however that is written ("urn:uuid:" in front), else one without UID
///   that has its names and values.
/// - A card without UID is the contact that has its names and values (`cardValueHash`). If there is none it gets a UID
///   that is made of them: the same card has the same one each time, also when the contact was edited since.
/// - A contact that is there stays as it is, unless contacts are replaced; and then it is only where its file holds no
///   other card. REV and PRODID make no difference.
///
/// Each file has mode 0600, is named after the UID, and is there whole or not at all; nobody's file is overwritten. One
/// thread.
class ContactImport {
 public:
  /// Reads the cards that are there. Throws ContactImportError when the folder cannot be read or written to, or is
  /// missing and not to be made; and as `readContactCard` does.
  explicit ContactImport(ContactImportOptions options);

  /// Imports what the bytes of a file hold (see `offeredCards`).
  void add(const std::string& file, std::string bytes);
  /// Notes that a file could not be read.
  void leaveOut(const std::string& file, const std::string& reason);

  const ContactImportResult& result() const { return _result; }

 private:
  /// A contact in the folder.
  struct Contact {
    std::string guid;  ///< its UID; empty without one
    std::string file;
    std::int64_t textHash = 0;
    std::int64_t valueHash = 0;
    bool isAlone = true;               ///< in its file
    std::optional<CardOrigin> origin;  ///< where it was imported from just now
  };

  void requireFolder() const;
  void readFolder();
  void readContacts(const std::string& file, std::string bytes);
  void note(Contact contact);
  Contact* contactWith(const std::string& uid);
  Contact* contactWith(std::int64_t valueHash, bool withoutUid);

  void take(const CardOrigin& origin, const OfferedCard& card);
  void takeKnown(const CardOrigin& origin, Contact& contact, const std::string& text, std::int64_t valueHash);
  void create(Contact contact, const std::string& text);
  bool createFile(Contact& contact, const std::string& text);
  bool rewrite(const std::string& file, const std::string& text) const;
  void replace(const CardOrigin& origin, Contact& contact, const std::string& text, std::int64_t valueHash);
  void leaveOut(const CardOrigin& origin, std::string reason) {
    _result.leftOut.push_back({origin, std::move(reason)});
  }

  const ContactImportOptions _options;
  ContactImportResult _result;
  std::deque<Contact> _contacts;
  std::unordered_map<std::string, Contact*> _byUid;
  std::unordered_multimap<std::int64_t, Contact*> _byValues;
};

}  // namespace pellor
