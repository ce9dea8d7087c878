// The favorites of the phone application.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/AddressBookStore.h"

namespace pellor {

struct FavoriteEntry {
  std::string displayName;
  std::string value;  ///< the phone number or e-mail address that it dials or mails; empty only with a record
  std::int32_t abRecordID = InvalidRecordID;  ///< the record of the contact; InvalidRecordID when there is none
  friend bool operator==(const FavoriteEntry&, const FavoriteEntry&) = default;
};

/// Main queue.
class FavoritesSource {
 public:
  virtual ~FavoritesSource() = default;
  /// The favorites in the user's order; empty when there are none.
  virtual std::vector<FavoriteEntry> favoriteEntries() = 0;
};

}  // namespace pellor
