#include "pellor/linux/contacts/internal/IndexedContactSearch.h"

#include <utility>

#include "pellor/linux/contacts/internal/ContactNames.h"
#include "pellor/linux/contacts/internal/DestinationKey.h"
#include "pellor/linux/contacts/internal/IndexedAddressBookHandle.h"
#include "pellor/linux/phone/ComparableNumber.h"
#include "pellor/linux/text/TextLimits.h"
#include "pellor/platform/TypedNumber.h"

namespace pellor {
namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

FoundContact foundContact(FittingContact fitting, bool surnameFirst) {
  ContactCard& card = fitting.contact.card;
  if (card.nameIsDerived) deriveNames(card, surnameFirst);
  FoundContact found;
  found.guid = std::move(fitting.contact.guid);
  found.name = compositeName(card, surnameFirst).value_or(card.nickname.value_or(""));
  found.organization = card.organization.value_or("");
  for (const auto* values : {&card.phones, &card.emails})
    for (const CardValue& value : *values) found.destinations.push_back(value.value);
  found.fit = fitting.fit;
  return found;
}

}  // namespace

IndexedContactSearch::IndexedContactSearch(std::shared_ptr<IndexedAddressBook> addressBook,
                                           std::shared_ptr<TextService> text,
                                           std::shared_ptr<ReachabilityService> destinations,
                                           std::shared_ptr<PhoneNumberFormatter> phoneNumbers)
    : _addressBook(std::move(addressBook)),
      _text(std::move(text)),
      _destinations(std::move(destinations)),
      _phoneNumbers(std::move(phoneNumbers)) {}

std::vector<FoundContact> IndexedContactSearch::find(std::string_view text, std::size_t limit) {
  const std::string_view asked = nameWithinLimit(trimmed(text));
  return found([&](ContactIndex& index) { return queryFor(asked, index); }, limit);
}

std::vector<FoundContact> IndexedContactSearch::findSimilar(std::string_view text, std::size_t limit) {
  const std::string_view asked = nameWithinLimit(trimmed(text));
  return found([&](ContactIndex& index) { return queryForSimilar(asked, index); }, limit);
}

std::vector<FoundContact> IndexedContactSearch::found(const MakeQuery& makeQuery, std::size_t limit) {
  std::vector<FoundContact> found;
  _addressBook->performWithAddressBook([&](AddressBook&) {
    IndexedAddressBookHandle& handle = _addressBook->sharedHandle();
    if (!handle.isReadable()) return;
    ContactIndex& index = _addressBook->index();
    const std::optional<ContactQuery> query = makeQuery(index);
    if (!query) return;
    const bool surnameFirst = handle.writesSurnameFirst();
    for (FittingContact& fitting : ContactIndexSearch(index).find(*query, limit))
      found.push_back(foundContact(std::move(fitting), surnameFirst));
  });
  return found;
}

std::optional<ContactQuery> IndexedContactSearch::queryFor(std::string_view text, const ContactIndex& index) {
  ContactQuery query;
  query.words = _text->searchWords(text);
  // A digit is a word, too.
  if (query.words.empty()) return std::nullopt;
  const bool hasDigit = _text->containsDecimalDigit(text);
  // A text without a digit is its own form; the phone library, whose start takes long, need not say so.
  query.destination = hasDigit ? index.keyOfDestination(text) : destinationKey(std::string(text));
  const auto keys = hasDigit ? keysOfNumber(text) : std::nullopt;
  if (!keys) return query;
  if (const auto number = TypedNumber::read(*keys, *_text, *_destinations, *_phoneNumbers)) {
    query.numberBeginnings = number->beginnings();
    query.numberEnding = number->ending();
  }
  return query;
}

std::optional<ContactQuery> IndexedContactSearch::queryForSimilar(std::string_view text, ContactIndex& index) {
  ContactQuery query;
  query.words = _text->searchWords(text);
  if (query.words.empty()) return std::nullopt;
  ContactIndexSearch search(index);
  for (SearchWord& word : query.words) {
    if (search.isOfAName(word)) continue;
    auto nearest = search.nearestOfNames(word.key);
    if (!nearest) return std::nullopt;
    word = {*std::move(nearest), {}};
  }
  return query;
}

}  // namespace pellor
