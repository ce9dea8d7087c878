// The user's contacts, beyond the platform interface.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// What a program tells its user of the contacts. Main queue.
class UserContacts : public AddressBookStore {
 public:
  /// Why there are no contacts, in one sentence for the user; absent when the source gives them.
  virtual std::optional<std::string> sourceError() = 0;
  /// Why lookups find nothing or may have missed something; absent when the contacts can be read, if only as they were
  /// when the source gave them last.
  virtual std::optional<std::string> readError() = 0;
  /// How many cards are no contacts; what they are the log says, and `surveyCards`.
  virtual std::size_t unusableCards() = 0;
};

}  // namespace pellor
