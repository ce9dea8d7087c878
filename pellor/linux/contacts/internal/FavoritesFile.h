// The favorites beside the contacts.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/contacts/EditableFavorites.h"
#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/platform/FavoritesSource.h"

namespace pellor {

/// The file `favorites` in the contacts folder, in the user's order. One line for each favorite, its fields separated
/// by tabs; later fields may be left out, and so may empty ones at the end:
///
///     # GUID<TAB>number or address<TAB>name
///     4fbe8971-0bc3<TAB>+44 20 7946 0123<TAB>Anna
///     <TAB>info@example.org<TAB>The club
///
/// Empty lines, lines that begin with # and lines that are no UTF-8 are comments. Without the file the favorites are
/// the contacts that are marked in their cards (X-QTPROJECT-FAVORITE, X-FOLKS-FAVOURITE); the first edit writes these
/// down. Main queue.
class FavoritesFile final : public FavoritesSource, public EditableFavorites {
 public:
  using Line = FavoriteLine;

  FavoritesFile(std::shared_ptr<IndexedAddressBook> addressBook, const std::filesystem::path& contactsFolder);

  /// A favorite belongs to the contact with its GUID, else to the first one that has its value. Name and value that are
  /// unknown are the contact's. One with neither contact nor value is left out, and the log says so. Unreadable where
  /// there is no folder, and while the file, which is named on the log once, or the contacts cannot be read.
  Answer<std::vector<FavoriteEntry>> favoriteEntries() override;

  std::optional<std::vector<Line>> lines() override;
  Outcome edit(const Edit& change) override;
  const std::string& problem() const override { return _reportedProblem; }

 private:
  struct Content;

  std::optional<Content> read();
  std::optional<std::vector<Line>> markedFavorites();
  FavoriteEntry entry(AddressBook& addressBook, const Line& line);
  bool write(const Content& content);
  void report(const std::string& problem);
  void reportUnreachable(const Line& line);

  const std::shared_ptr<IndexedAddressBook> _addressBook;
  const std::filesystem::path _file;
  LockPatience _patience{std::chrono::seconds(2)};
  const LogHandle _log;
  std::string _reportedProblem;
};

}  // namespace pellor
