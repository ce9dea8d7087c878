// Which contacts have a name or a destination.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "pellor/testing/SimulatedPhoneNumbers.h"
#include "pellor/testing/TestContact.h"

namespace pellor {

/// The contacts of one moment, by the words of their names and by their destinations, which are compared as the home
/// country has them. Contacts are named by rows. One thread at a time.
class InMemoryContactIndex {
 public:
  using Row = std::uint64_t;
  using Rows = std::vector<Row>;

  explicit InMemoryContactIndex(std::shared_ptr<SimulatedPhoneNumbers> phoneNumbers)
      : _phoneNumbers(std::move(phoneNumbers)) {}

  /// False when it holds the contacts of this sequence number as the present home country has them. Else it is empty
  /// from now on, and the caller adds them.
  bool startAt(std::int32_t sequenceNumber);
  void add(Row row, const TestContact& contact);

  /// The contacts of whose words some begin with each word of `name`; none when it has no words. In any order.
  Rows rowsMatchingName(std::string_view name) const;
  /// In the order of `add`.
  Rows rowsWithDestination(std::string_view destination) const;

 private:
  std::set<Row> rowsWithWord(const std::string& beginning) const;
  std::string destinationKey(std::string_view destination) const;

  const std::shared_ptr<SimulatedPhoneNumbers> _phoneNumbers;
  std::int32_t _sequenceNumber = 0;
  std::string _country;
  std::map<std::string, Rows> _rowsByWord;
  std::unordered_map<std::string, Rows> _rowsByDestination;
};

}  // namespace pellor
