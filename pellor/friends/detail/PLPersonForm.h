// The form in which the friend list stores a person, as the library reads it.
#pragma once

#include <deque>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/friends/detail/PLPersonRecord.h"
#include "pellor/runtime/DictionaryView.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// The stored form of a person in the friend list.
using PersonDictionary = Dictionary;

// Its keys.
inline constexpr std::string_view PLPersonRecordIDKey = "ABRecordID";
inline constexpr std::string_view PLPersonRecordGUIDKey = "ABRecordGUID";
inline constexpr std::string_view PLPersonDatabaseUIDKey = "ABDatabaseUID";
inline constexpr std::string_view PLPersonNameKey = "Name";
inline constexpr std::string_view PLPersonAllValuesKey = "AllValues";
inline constexpr std::string_view PLPersonReplyAsKey = "ReplyAs";
inline constexpr std::string_view PLPersonPreferredDestinationKey = "PreferredDestination";
inline constexpr std::string_view PLPersonMonogramKey = "Monogram";
inline constexpr std::string_view PLPersonMetadataKey = "Metadata";

/// Shows a stored form without copying it, but for entries under keys that this version does not know. A value of the
/// wrong type reads as absent. Made to be used for one form after the other; what it shows lives until the next one is
/// read, and as long as the form itself. Used where there is a current process, by one thread.
class PLPersonForm {
 public:
  PLPersonForm() = default;
  /// Shows the dictionary, which has to outlive this.
  explicit PLPersonForm(const PersonDictionary& dictionary);
  PLPersonForm(const PLPersonForm&) = delete;
  PLPersonForm& operator=(const PLPersonForm&) = delete;

  /// The entries to be read, see `read`.
  DictionaryView& entries() { return _entries; }
  /// Reads what `entries` shows.
  void read();

  /// Whether it is the form of an empty slot.
  bool isEmpty() const { return _entries.isEmpty(); }
  /// The GUID; empty also when there is none: both identify nobody.
  std::string_view identifyingGUID() const;
  /// The texts among the destinations, as they are stored.
  std::span<const std::string_view> storedDestinations() const;
  /// Whether destinations are stored, be it of a wrong type.
  bool hasStoredDestinations() const;

  /// What a person takes over: the destinations in canonical form, the monogram made from the name when none is
  /// stored. An empty monogram takes the place of a set one; a person without one keeps none.
  const PLPersonRecord::Content& content();
  /// What the person of that record takes over: destinations that it has in canonical form already are not worked on
  /// again.
  const PLPersonRecord::Content& contentFor(const PLPersonRecord& record);
  /// Whether the stored destinations, as a set, are others than those of `content`.
  bool isCorrected();
  /// The stored metadata; empty when there are none.
  const Dictionary& metadata() const;
  /// Whether a person that took all of it over stores this very form.
  bool isAsWritten();
  /// The form that a person that took all of it over stores.
  PersonDictionary written();

 private:
  void readEntry(const EntryView& entry, Dictionary& unknown);
  void makeContent(bool areCanonical);
  void canonicalizeDestinations();

  DictionaryView _entries;
  const EntryView* _allValues = nullptr;
  const Dictionary* _metadata = nullptr;
  bool _hasMonogram = false;
  bool _hasRecordID = false;
  bool _hasRightTypes = true;

  PLPersonRecord::Content _content;
  bool _hasContent = false;
  std::vector<std::string_view> _destinations;
  std::deque<std::string> _made;  // texts that are not in the form as they are
};

}  // namespace pellor
