// What a record of an indexed address book asks of the handle that it came from.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// Main queue.
class IndexedRecordOwner {
 public:
  virtual ~IndexedRecordOwner() = default;
  /// The records of a linked set, by identifier.
  virtual std::vector<RecordRef> linkedSet(std::int32_t linkID) = 0;
  /// Whether the locale writes surnames first.
  virtual bool writesSurnameFirst() const = 0;
  virtual std::optional<ContactPhoto> photoOf(std::int32_t recordID) = 0;
  /// A value was set on one of the handle's records.
  virtual void noteEdit() = 0;
};

}  // namespace pellor
