// One batch of changes to the contact index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "pellor/linux/contacts/CardSource.h"
#include "pellor/linux/contacts/internal/CardFile.h"
#include "pellor/linux/contacts/internal/ContactIndexOptions.h"
#include "pellor/linux/files/FolderChange.h"
#include "pellor/linux/sqlite/SQLiteStatements.h"

namespace pellor {

struct IndexedWords;

/// The signatures that the index has of a source's cards, by name.
std::map<std::string, CardSignature> indexedSignatures(SQLiteStatements& statements, std::int64_t folder);
/// The signatures of those cards of the source that there are.
std::map<std::string, CardSignature> signaturesOf(CardSource& source, const std::set<std::string>& names);

/// Everything here happens inside a transaction of the caller's, which holds off all other writers: so a state of the
/// source that was read earlier never replaces one that was read later.
class ContactIndexUpdate {
 public:
  /// A line for the log, to be written when the transaction is committed.
  struct Line {
    std::string card;
    std::string text;
  };

  ContactIndexUpdate(SQLiteStatements& statements, std::int64_t folder, const ContactIndexOptions& options,
                     CardSource& source)
      : _statements(statements), _folder(folder), _options(options), _source(source) {}

  /// Makes the index agree with these cards: `present` are all that there are, or those of `change` if it names some.
  void bringInStep(const std::map<std::string, CardSignature>& present, const FolderChange& change);
  /// Makes names and destinations anew of all contacts that have not changed in this update.
  void deriveOthers();

  /// Whether a contact came, went or changed.
  bool hasChanged() const { return _hasChanged; }
  /// By how many there are more cards, or fewer.
  std::int64_t growth() const { return _growth; }
  /// Notes the number under which these changes, and those of linked records, are asked for later.
  void stampChanges(std::int64_t sequence);
  std::size_t cardsRead() const { return _cardsRead; }
  const std::vector<Line>& lines() const { return _lines; }

 private:
  struct Claimant;

  std::map<std::string, CardSignature> indexed(const FolderChange& change);
  void removeFile(const std::string& file);
  void readFile(const std::string& file);
  bool isTextOfFile(const std::string& file, std::int64_t hash);
  std::vector<StoredCard> storedCards(const std::string& file);
  void storeFile(const std::string& file, const CardSignature& signature, std::optional<std::int64_t> hash);
  void storeReading(const std::string& file, const std::vector<StoredCard>& stored, CardFileReading reading);
  void storeFaults(const std::string& file, const std::vector<CardFault>& faults);
  void storeCard(const std::string& file, FileCard card, const StoredCard* former);
  std::int64_t rowFor(const std::string& file, const FileCard& card, const StoredCard* former);
  void removeCard(const StoredCard& card);
  void touch(const std::string& claim);
  void markChanged(std::int32_t record);
  void finish();
  void settleClaim(const std::string& claim);
  std::vector<Claimant> claimantsOf(const std::string& claim);
  std::int32_t identityOf(const std::string& guid);
  void derive(std::int64_t card);
  std::string addDestination(std::int64_t card, const std::string& value);
  void addName(std::int64_t card, const std::string& name);
  void addWords(std::int64_t card, const IndexedWords& words);
  void settleLinks();
  std::map<std::int32_t, std::int32_t> storedLinks();
  std::int32_t recordNamed(const std::string& name);
  std::vector<std::int32_t> recordsNamed(const std::vector<std::string>& names);

  SQLiteStatements& _statements;
  const std::int64_t _folder;
  const ContactIndexOptions& _options;
  CardSource& _source;
  std::vector<std::string> _claims;  ///< whose files may have a new order; as met, so that identifiers follow the files
  std::set<std::string> _knownClaims;
  std::set<std::int64_t> _changedCards;  ///< whose names and destinations are out of date
  std::set<std::int32_t> _changedRecords;
  std::map<std::int32_t, std::int32_t> _formerLinks;  ///< as they were before the first of the changed records
  bool _hasChanged = false;
  std::int64_t _growth = 0;
  std::size_t _cardsRead = 0;
  std::vector<Line> _lines;
};

}  // namespace pellor
