// A friend list as a file, for another machine or for later. docs/export.md describes the format.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/list/ExportedList.h"

namespace pellor::cli {

/// Why a text is no such file, and where: "line 3, column 7: ..." or "page 2, slot 5: ...", printable.
class ListFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A file that was read, and what of it was left out: "page 2: member \"colour\"", printable.
struct ListFileReading {
  ExportedList list;
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
ListFileText textOf(const ExportedList& list);

}  // namespace pellor::cli
