// What is persisted of a person, but for the metadata, in one piece of memory.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "pellor/friends/PLDestination.h"
#include "pellor/platform/AddressBookStore.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// An immutable record. Copies share its memory; a change makes another record. Texts are seen in place: they live as
/// long as any copy of the record. Any thread.
class PLPersonRecord {
 public:
  enum Text : std::size_t { _abRecordGUID, _abDatabaseUID, _name, _initials, _preferredReplyAs, _preferredDestination };
  static constexpr std::size_t TextCount = 6;
  static constexpr std::size_t CacheLine = 64;

  /// What a record is made of.
  struct Content {
    std::int32_t _abRecordID = InvalidRecordID;
    std::array<std::optional<std::string_view>, TextCount> texts;
    /// In their order, each once; absent when they were never set.
    std::optional<std::span<const std::string_view>> destinations;
    /// Whether it is known that each destination is its own canonical form.
    bool areCanonical = false;
    /// Of the stored form, under keys that this version does not know; null: none.
    std::shared_ptr<const Dictionary> unknownEntries;
  };

  /// Nothing is known.
  PLPersonRecord();
  explicit PLPersonRecord(const Content& content);

  std::int32_t recordID() const { return header()._abRecordID; }
  std::optional<std::string_view> text(Text which) const;
  /// The GUID; empty also when there is none: both identify nobody.
  std::string_view identifyingGUID() const { return part(_abRecordGUID); }

  /// Whether the destinations were ever set, be it to none.
  bool hasDestinations() const { return header().hasDestinations; }
  std::size_t destinationCount() const { return header().destinationCount; }
  /// In their order.
  std::string_view destination(std::size_t index) const { return part(TextCount + index); }
  bool containsDestination(std::string_view destination) const;
  bool sharesDestination(const PLPersonRecord& other) const;
  /// The destinations as a set of their own; null when they were never set.
  std::shared_ptr<const DestinationSet> destinations() const;

  /// What the stored form has under keys that this version does not know; null: nothing.
  std::shared_ptr<const Dictionary> unknownEntries() const;

  /// Has its memory brought near, as much as most records have.
  void prefetch() const;

  /// Whether both share their memory: then they are equal without looking.
  bool isSameObject(const PLPersonRecord& other) const { return _memory == other._memory; }
  /// Whether it is known that each destination is its own canonical form.
  bool areCanonical() const { return header().areCanonical; }
  /// Whether it has these destinations, in this order, and they were set.
  bool hasDestinations(std::span<const std::string_view> destinations) const;
  /// Whether GUID and destinations of both are equal.
  bool hasIdentityOf(const PLPersonRecord& other) const;
  friend bool operator==(const PLPersonRecord& left, const PLPersonRecord& right);

  PLPersonRecord withRecordID(std::int32_t recordID) const;
  PLPersonRecord with(Text which, std::optional<std::string_view> text) const;
  PLPersonRecord withDestinations(const DestinationSet& destinations) const;
  PLPersonRecord withUnknownEntries(std::shared_ptr<const Dictionary> entries) const;

 private:
  struct Memory;
  // At the front of the memory. Behind it lie the ends of the texts and the destinations, then their bytes.
  struct Header {
    std::int32_t _abRecordID;
    std::uint32_t destinationCount;
    std::array<bool, TextCount> hasText;
    bool hasDestinations;
    bool areCanonical;
    std::array<char, sizeof(void*)> unknownEntries;  // the address of the pointer to them, null for none
  };

  const Header& header() const;
  std::string_view part(std::size_t index) const;
  // `destinations` is the room for what the content shows.
  Content content(std::vector<std::string_view>& destinations) const;

  std::shared_ptr<const char[]> _memory;
};

}  // namespace pellor
