// A friend list as a value of its own: for another machine, or for later.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/runtime/Value.h"

namespace pellor {

/// A friend with all that it carries, but for what belongs to one machine: the number of its record and the identifier
/// of its contact database.
struct ExportedFriend {
  std::optional<std::string> name = {};
  std::optional<std::string> monogram = {};    ///< empty: none; absent: it is made from the name
  std::vector<std::string> destinations = {};  ///< numbers and addresses; canonical where they were exported
  std::optional<std::string> chosenNumber = {};
  std::optional<std::string> replyAs = {};
  /// Of the contact that the friend is linked with. On another machine it may lead nowhere.
  std::optional<std::string> contactGUID = {};
  Dictionary metadata = {};      ///< the app's own entries
  Dictionary otherEntries = {};  ///< what a later version of the library keeps of a friend; see `isOtherEntry`
  friend bool operator==(const ExportedFriend&, const ExportedFriend&) = default;
};

/// Whether a key may stand among `otherEntries`: it means neither one of the other members nor what belongs to one
/// machine. Entries under other keys are not imported.
bool isOtherEntry(std::string_view key);

struct ExportedPage {
  std::string title = {};                                   ///< empty without one
  std::vector<std::optional<ExportedFriend>> friends = {};  ///< by slot; slots behind the last one are empty
  friend bool operator==(const ExportedPage&, const ExportedPage&) = default;
};

/// A plain value, of which equal lists have equal ones.
struct ExportedList {
  static constexpr std::uint64_t LargestPageSize = 65536;

  std::uint64_t pageSize = 0;            ///< slots of a page, from 1 to `LargestPageSize`
  std::vector<ExportedPage> pages = {};  ///< up to the last one with a friend or a title
  friend bool operator==(const ExportedList&, const ExportedList&) = default;
};

}  // namespace pellor
