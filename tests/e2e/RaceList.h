// The friend list as the program shows it, for races of edits.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace pellor {

/// What follows a contact.
struct RaceContact {
  std::string name;  ///< empty: none
  std::vector<std::string> destinations;

  bool operator==(const RaceContact&) const = default;
};

struct RaceFriend {
  std::string key;  ///< the GUID of the contact, else the only destination: unique in every list of a race
  RaceContact contact;
  /// Reply address and metadata, by the names that edits have for them (see RaceFact).
  std::map<std::string, std::string> fields;

  bool operator==(const RaceFriend&) const = default;
};

struct RacePage {
  std::string title;
  std::vector<std::optional<RaceFriend>> slots;
};

struct RaceList {
  std::size_t pageSize = 0;
  std::vector<RacePage> pages;
};

/// Where somebody stands, counted from 0.
struct RacePlace {
  std::size_t page = 0;
  std::size_t slot = 0;

  bool operator==(const RacePlace&) const = default;
};

/// As the program's arguments have it: page and slot counted from 1.
std::string textOf(const RacePlace& place);

/// Reads the answer of `pellor --json list`; absent for a text that is none.
std::optional<RaceList> raceListIn(const std::string& json);

/// All places of the friend with this key, in order.
std::vector<RacePlace> placesOf(const RaceList& list, const std::string& key);
/// The friend in a place; null in an empty slot and outside of the list.
const RaceFriend* friendAt(const RaceList& list, const RacePlace& place);

/// The name of a metadata key among the fields of a friend, and that of the reply address.
std::string metadataField(const std::string& key);
inline constexpr const char* ReplyField = "reply-as";

}  // namespace pellor
