// The favorites of the phone application.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/Answer.h"

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
  /// The favorites in the user's order, at least one; none when there are none. Unreadable while nobody can tell, as
  /// before there is a folder that could hold them, or a service that has answered.
  virtual Answer<std::vector<FavoriteEntry>> favoriteEntries() = 0;
};

}  // namespace pellor
