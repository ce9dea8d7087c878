#include "pellor/linux/contacts/internal/MarkedFavorites.h"

#include <string>
#include <utility>

#include "pellor/linux/contacts/internal/IndexedAddressBookHandle.h"

namespace pellor {

namespace {

std::string firstOf(const std::optional<std::vector<std::string>>& values) {
  return values ? values->front() : std::string();
}

}  // namespace

FavoriteEntry favoriteOf(const ContactRecord& person) {
  const std::string phone = firstOf(person.phoneValues());
  return {person.compositeName().value_or(std::string()), phone.empty() ? firstOf(person.emailValues()) : phone,
          person.recordID()};
}

std::shared_ptr<MarkedFavorites> MarkedFavorites::make(Process& process,
                                                       std::shared_ptr<IndexedAddressBook> addressBook) {
  auto favorites = std::make_shared<MarkedFavorites>(Passkey(), process, std::move(addressBook));
  favorites->_observation = process.notificationCenter().addObserver(
      AddressBookChangedNotification, [weak = favorites->weak_from_this()](const Notification&) {
        if (const auto self = weak.lock()) self->compare();
      });
  return favorites;
}

MarkedFavorites::MarkedFavorites(Passkey, Process& process, std::shared_ptr<IndexedAddressBook> addressBook)
    : _process(process), _addressBook(std::move(addressBook)) {}

// Absent when the contacts cannot be read, which says nothing of the favorites.
std::optional<std::vector<FavoriteEntry>> MarkedFavorites::readFavorites() {
  std::optional<std::vector<FavoriteEntry>> favorites;
  _addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    std::vector<FavoriteEntry> marked;
    for (const RecordRef& person : _addressBook->sharedHandle().markedFavorites())
      marked.push_back(favoriteOf(*person));
    if (addressBook.isReadable()) favorites = std::move(marked);
  });
  return favorites;
}

Answer<std::vector<FavoriteEntry>> MarkedFavorites::favoriteEntries() {
  using Entries = Answer<std::vector<FavoriteEntry>>;
  auto favorites = readFavorites();
  _known = favorites.value_or(std::vector<FavoriteEntry>());
  if (!favorites) return Entries::unreadable();
  return favorites->empty() ? Entries::none() : Entries::some(*std::move(favorites));
}

void MarkedFavorites::compare() {
  if (!_known) return;
  auto favorites = readFavorites();
  if (!favorites || favorites == _known) return;
  _known = std::move(favorites);
  _process.notificationCenter().post({FavoritesChangedNotification, nullptr, {}});
}

}  // namespace pellor
