// The contacts folder: files of vCards, as in a vdir, which has one a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/linux/contacts/CardSource.h"

namespace pellor {

/// The file in the contacts folder that lists the favorites.
inline constexpr std::string_view FavoritesFileName = "favorites";

/// The folder's path from the root on, without a slash at its end: one spelling for one folder.
std::filesystem::path normalisedFolder(const std::filesystem::path& folder);

/// Whether the name is that of a contact's file: it ends with ".vcf" and is not hidden.
bool isContactFileName(std::string_view name);

/// The cards are the folder's files, by their names. A card's marks are inode, size, time of the last change of its
/// content and of its name, owner or mode.
class ContactFolder final : public CardSource {
 public:
  explicit ContactFolder(const std::filesystem::path& path) : _path(normalisedFolder(path)) {}

  const std::filesystem::path& path() const { return _path; }

  std::string name() const override { return _path.string(); }
  std::string title() const override { return "the contacts folder " + _path.string(); }
  std::string cardTitle() const override { return "contact file"; }
  std::string databaseUID() const override { return {}; }
  std::map<std::string, CardSignature> list() override;
  std::optional<CardSignature> signature(const std::string& card) override;
  /// At most ContactFileSizeLimit bytes. Waits for no pipe or device: only regular files are read. A file that cannot
  /// be read, or that was changed a moment ago, gets an unknown signature.
  CardContent read(const std::string& card) override;
  /// Tells of the favorites file too. A folder that is missing is waited for.
  std::unique_ptr<CardWatch> watch(std::function<void(const CardNews&)> handler) override;

 private:
  const std::filesystem::path _path;
};

}  // namespace pellor
