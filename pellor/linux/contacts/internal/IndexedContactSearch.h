// The search of the contacts over an indexed address book.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/contacts/internal/ContactIndexSearch.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/platform/ContactSearch.h"
#include "pellor/platform/PhoneNumberFormatter.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/platform/TextService.h"

namespace pellor {

class IndexedContactSearch final : public ContactSearch {
 public:
  /// The words of the text service are those of the index. `destinations` compares numbers that are typed.
  IndexedContactSearch(std::shared_ptr<IndexedAddressBook> addressBook, std::shared_ptr<TextService> text,
                       std::shared_ptr<ReachabilityService> destinations,
                       std::shared_ptr<PhoneNumberFormatter> phoneNumbers);

  std::vector<FoundContact> find(std::string_view text, std::size_t limit) override;
  std::vector<FoundContact> findSimilar(std::string_view text, std::size_t limit) override;

 private:
  using MakeQuery = std::function<std::optional<ContactQuery>(ContactIndex& index)>;

  std::vector<FoundContact> found(const MakeQuery& makeQuery, std::size_t limit);
  std::optional<ContactQuery> queryFor(std::string_view text, const ContactIndex& index);
  std::optional<ContactQuery> queryForSimilar(std::string_view text, ContactIndex& index);

  const std::shared_ptr<IndexedAddressBook> _addressBook;
  const std::shared_ptr<TextService> _text;
  const std::shared_ptr<ReachabilityService> _destinations;
  const std::shared_ptr<PhoneNumberFormatter> _phoneNumbers;
};

}  // namespace pellor
