#include "pellor/list/ShownDestination.h"

#include <algorithm>
#include <string_view>

#include "pellor/friends/PLDestination.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

AddressBookStore& contacts() { return *platformOf(Process::current()).addressBook; }

using Values = std::optional<std::vector<std::string>> (ContactRecord::*)() const;

// The first value that the friend has: the card may say other ones by now.
std::optional<std::string> firstOf(const std::vector<RecordRef>& cards, Values values, const PLPerson& person) {
  for (const RecordRef& card : cards) {
    for (const std::string& value : ((*card).*values)().value_or(std::vector<std::string>())) {
      auto canonical = plMessageCanonicalRawAddress(value);
      if (canonical && person.record().containsDestination(*canonical)) return canonical;
    }
  }
  return std::nullopt;
}

// The person's own card, then those linked with it.
std::vector<RecordRef> cardsOf(const RecordRef& own) {
  std::vector<RecordRef> cards = own->allLinkedPeople();
  std::ranges::stable_partition(cards, [&](const RecordRef& card) { return card == own; });
  return cards;
}

std::optional<std::string> destinationOnCard(const PLPerson& person) {
  const std::string_view guid = person.record().identifyingGUID();
  if (guid.empty()) return std::nullopt;
  std::optional<std::string> found;
  contacts().performWithAddressBook([&](AddressBook& addressBook) {
    const RecordRef own = addressBook.copyPersonMatchingGUID(guid);
    if (!own) return;
    const std::vector<RecordRef> cards = cardsOf(own);
    found = firstOf(cards, &ContactRecord::phoneValues, person);
    if (!found) found = firstOf(cards, &ContactRecord::emailValues, person);
  });
  return found;
}

// A region may have been set after the choice.
std::optional<std::string> chosenDestination(const PLPerson& person) {
  const auto chosen = person.preferredDestination();
  auto canonical = chosen ? plMessageCanonicalRawAddress(*chosen) : std::nullopt;
  return canonical && person.record().containsDestination(*canonical) ? canonical : std::nullopt;
}

bool isShownByCard(const PLPerson& person) { return person.allValuesCount() > 1 && !chosenDestination(person); }

}  // namespace

// A friend who has one alone is shown by it, whatever the card says.
std::optional<std::string> destinationShownOf(const PLPerson& person) {
  if (person.allValuesCount() < 2) return person.primaryDestination();
  if (auto chosen = chosenDestination(person)) return chosen;
  if (auto onCard = destinationOnCard(person)) return onCard;
  return person.primaryDestination();
}

void withCardsOf(const std::vector<std::shared_ptr<PLPerson>>& friends, const std::function<void()>& work) {
  std::vector<std::string_view> guids;
  for (const auto& person : friends) {
    const bool hasCard = person && person->abRecordGUID();
    if (hasCard && isShownByCard(*person)) guids.push_back(person->record().identifyingGUID());
  }
  contacts().performWithAddressBook(
      [&](AddressBook& addressBook) { addressBook.withPeopleMatchingGUIDs(guids, work); });
}

}  // namespace pellor
