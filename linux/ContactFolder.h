// The contacts folder: a vdir, one vCard a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace pellor {

/// The largest file that is taken for a card: a card with a picture has some hundred kilobytes.
inline constexpr std::int64_t ContactFileSizeLimit = std::int64_t{8} * 1024 * 1024;

/// The file in the contacts folder that lists the favorites.
inline constexpr std::string_view FavoritesFileName = "favorites";

/// What tells without reading whether a file may have changed. All zero when nothing can be told: the file has to be
/// read again.
struct FileSignature {
  std::int64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since 1970
  std::int64_t changed = 0;   ///< of name, owner or mode too
  bool isKnown() const { return inode != 0; }
  friend bool operator==(const FileSignature&, const FileSignature&) = default;
};

/// Why the folder gives no files.
class ContactFolderError : public std::runtime_error {
 public:
  ContactFolderError(const std::string& message, bool isMissing) : std::runtime_error(message), _isMissing(isMissing) {}
  /// Whether there is no such folder, as opposed to one that cannot be read.
  bool isMissing() const { return _isMissing; }

 private:
  bool _isMissing;
};

/// The folder's path from the root on, without a slash at its end: one spelling for one folder.
std::filesystem::path normalisedFolder(const std::filesystem::path& folder);

/// Whether the name is that of a contact's file: it ends with ".vcf" and is not hidden.
bool isContactFileName(std::string_view name);

/// The contact files of the folder by name, without reading them. Throws ContactFolderError.
std::map<std::string, FileSignature> listContactFiles(const std::filesystem::path& folder);

/// The signature of one file; absent when there is no such file, unknown when it cannot be reached.
std::optional<FileSignature> contactFileSignature(const std::filesystem::path& folder, const std::string& name);

struct ContactFileContent {
  FileSignature signature;          ///< from before the content was read
  std::optional<std::string> text;  ///< absent when it cannot be read
  std::string problem;              ///< why it cannot
  bool isMissing = false;           ///< whether there is no such file any more
};

/// Reads one file, at most ContactFileSizeLimit bytes. Waits for no pipe or device: only regular files are read. A file
/// that cannot be read, or that was changed a moment ago, gets an unknown signature.
ContactFileContent readContactFile(const std::filesystem::path& folder, const std::string& name);

/// A hash that is the same in every program and on every machine.
std::int64_t contentHash(std::string_view text);

}  // namespace pellor
