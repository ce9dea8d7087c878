// What became of an import of the phone favorites.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace pellor {

class PLPerson;

/// What became of an import of the favorites.
struct PLFavoritesImport {
  /// Whether favorites and contacts could be read, and there is a list; else nothing was done.
  bool couldRead = false;
  std::vector<std::shared_ptr<PLPerson>> added;         ///< in the order of the favorites
  std::uint64_t withoutRoom = 0;                        ///< how many were left out because the list is full
  std::vector<std::shared_ptr<PLPerson>> leftOut = {};  ///< these
};

}  // namespace pellor
