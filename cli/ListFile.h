// A friend list as a file, for another machine or for later. docs/export.md describes the format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/friends/PLPerson.h"

namespace pellor::cli {

/// A page of such a file. A slot has the stored form of a friend, without what belongs to one machine: number of the
/// record and identifier of the database.
struct ListFilePage {
  std::string title;                                   ///< empty for none
  std::vector<std::optional<PersonDictionary>> slots;  ///< not more than a page has; those behind the last are empty
};

struct ListFile {
  std::uint64_t pageSize = 0;
  std::vector<ListFilePage> pages;
};

/// Why a text is no such file, and where: "line 3, column 7: ..." or "page 2, slot 5: ...", printable.
class ListFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A file that was read, and what of it was left out: "page 2: member \"colour\"", printable.
struct ListFileReading {
  ListFile list;
  std::vector<std::string> leftOut;
};

inline constexpr std::size_t LongestListFile = std::size_t{64} << 20;

/// Throws ListFileError.
ListFileReading readListFile(std::string_view text);

/// The file as a text, of one list the same one each time, and whether texts were repaired that are no UTF-8.
struct ListFileText {
  std::string text;
  bool isRepaired = false;
};
ListFileText textOf(const ListFile& file);

}  // namespace pellor::cli
