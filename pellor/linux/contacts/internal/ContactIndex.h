// The index of the contacts: what their source holds, without reading it again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/CardSource.h"
#include "pellor/linux/contacts/internal/CardPhotos.h"
#include "pellor/linux/contacts/internal/ContactIndexCounts.h"
#include "pellor/linux/contacts/internal/ContactIndexFile.h"
#include "pellor/linux/contacts/internal/ContactIndexOptions.h"
#include "pellor/linux/contacts/internal/IndexedContact.h"
#include "pellor/linux/files/FolderChange.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// Kept in `contacts-index.sqlite` of the data folder and shared by all processes that use it. Record identifiers
/// belong to GUIDs and are never given to another one. The GUID is the card's UID, else the name of the file that has
/// it alone, else a hash of its names and values (`readCardFile`); of several cards with one UID the first by file has
/// it and the others go by file and hash. A card that cannot be used is named on the log once for each of its states;
/// what was good of it before stays. One thread at a time; crosses no fork. Nothing throws.
class ContactIndex {
 public:
  /// Does nothing yet: the first update opens the index. Without one there are no contacts.
  ContactIndex(ContactIndexOptions options, std::shared_ptr<CardSource> source, LogHandle log);
  ~ContactIndex();

  /// Brings the index in step with the source, in one transaction; cards are read only if their signature is another
  /// one or `change` names them. Raises the sequence number once if a contact really changed. A source that gives no
  /// cards leaves the index as it is. Not while reading. False when it has to be tried again.
  bool update(const FolderChange& change);

  /// Why the index could not be used; absent again after an update that went well.
  const std::optional<std::string>& failure() const { return _failure; }
  /// Why the source gave no cards at the last update; absent when it did. One sentence for the user.
  const std::optional<std::string>& sourceError() const { return _sourceError; }
  /// How many cards were read so far, for measuring what an update cost.
  std::size_t cardsRead() const { return _cardsRead; }

  /// What is read between these two comes from one state of the index, whatever other processes do. May be nested.
  void beginReading();
  void endReading();
  bool isReading() const { return _readers > 0; }

  /// Whether the index can be read and has been in step with the source once. After a failure inside `beginReading` and
  /// `endReading` nothing more is read until the end, so that what was read is of one piece.
  bool isReadable();
  /// Whether there was such a failure. Inside these two.
  bool hasFailedWhileReading() const { return _hasFailedWhileReading; }

  /// The source's own, else one that was made at random once for each source.
  std::string databaseUID();
  /// Positive; another one after each change, also after the index was made anew and for another source.
  std::int32_t sequenceNumber();

  /// How many cards can be used; absent when that cannot be told.
  std::optional<std::uint64_t> cardCount();

  /// The picture in the contact's card, which is read for it.
  std::optional<ContactPhoto> photo(std::int32_t recordID);
  /// How many cards, or files, are no contacts as they are now.
  std::size_t unusableCards();

  std::optional<IndexedContact> contactWithID(std::int32_t recordID);
  std::optional<IndexedContact> contactWithGUID(std::string_view guid);
  // All of these ascending.
  std::vector<std::int32_t> allRecordIDs();
  std::vector<std::int32_t> recordIDsMatchingName(std::string_view name);
  std::vector<std::int32_t> recordIDsForDestination(std::string_view destination);
  std::vector<std::int32_t> recordIDsOfLinkedSet(std::int32_t linkID);
  std::vector<std::int32_t> favoriteRecordIDs();

  // Many at once, by one query; those that are there, in any order.
  std::vector<IndexedContact> contactsWithGUIDs(std::span<const std::string_view> guids);
  /// Each set ascending.
  std::vector<IndexedContact> contactsOfLinkedSets(std::span<const std::int32_t> linkIDs);

  /// Runs queries on the rows of the source, whose number in the index is `folder`; false when one failed. An exception
  /// of SQLite's ends the work.
  bool read(const std::function<void(SQLiteStatements& statements, std::int64_t folder)>& work);
  /// As the index has that destination.
  std::string keyOfDestination(std::string_view destination) const;

  /// The GUIDs, ascending, of the contacts that came, went or changed after that sequence number of this source, and of
  /// those that were or are linked with one of them. Absent when this cannot be told, and for more than `limit`.
  std::optional<std::vector<std::string>> guidsChangedSince(std::int32_t sequence, std::size_t limit);

 private:
  using Binding = std::function<void(SQLiteStatement&)>;

  void open(IndexCheck check);
  void findFolder();
  void recover();
  bool attempt(const std::function<void()>& work);
  void reportFailure(const std::string& reason);
  void updateOnce(const FolderChange& change);
  void apply(const FolderChange& change);
  std::map<std::string, CardSignature> present(const FolderChange& change);
  void takeSourceError(const CardSourceError& error);
  void takeSourceAnswer();
  bool isCurrent(const std::map<std::string, CardSignature>& cards);
  std::string currentUID() const;
  std::string indexedForm();
  std::string derivation() const;
  const SQLiteDatabase& database() const;
  std::optional<IndexedContact> contact(std::string_view query, const Binding& bind);
  std::vector<IndexedContact> contacts(std::string_view query, const std::string& asked);
  std::vector<std::int32_t> recordIDs(std::string_view query, const Binding& bind);

  const ContactIndexOptions _options;
  const std::shared_ptr<CardSource> _source;
  LogHandle _log;
  CardPhotos _photos;
  const std::shared_ptr<LockPatience> _patience;
  std::unique_ptr<SQLiteStatements> _statements;
  bool _isInMemory = false;
  std::int64_t _folder = 0;
  std::string _uid;
  int _readers = 0;
  std::optional<std::string> _failure;
  bool _hasFailedWhileReading = false;
  bool _isKnownReadable = false;  // since the reading began
  bool _mustRetry = false;
  std::optional<std::string> _sourceError;
  bool _isSourceErrorOnLog = false;
  std::size_t _cardsRead = 0;
  CardCount _cardCount;
};

}  // namespace pellor
