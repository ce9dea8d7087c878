// The favorites that are marked in the contacts themselves.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/platform/FavoritesSource.h"

namespace pellor {

/// The favorite that a contact is where nothing else is said of it: by its name, and its first phone number, else its
/// first e-mail address.
FavoriteEntry favoriteOf(const ContactRecord& person);

/// The marks are X-QTPROJECT-FAVORITE, with the user's order, and X-FOLKS-FAVOURITE; those without a place follow by
/// name. One of several linked contacts stands for all. Main queue.
class MarkedFavorites final : public FavoritesSource, public std::enable_shared_from_this<MarkedFavorites> {
  class Passkey {};

 public:
  static std::shared_ptr<MarkedFavorites> make(Process& process, std::shared_ptr<IndexedAddressBook> addressBook);
  MarkedFavorites(Passkey, Process& process, std::shared_ptr<IndexedAddressBook> addressBook);

  /// From the first call on FavoritesChangedNotification is posted when they are other ones than at the last call, or
  /// than at the last such post.
  Answer<std::vector<FavoriteEntry>> favoriteEntries() override;

 private:
  std::optional<std::vector<FavoriteEntry>> readFavorites();
  void compare();

  Process& _process;
  const std::shared_ptr<IndexedAddressBook> _addressBook;
  std::optional<std::vector<FavoriteEntry>> _known;
  std::shared_ptr<Observation> _observation;
};

}  // namespace pellor
