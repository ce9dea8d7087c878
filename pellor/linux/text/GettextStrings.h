// Localised strings from gettext catalogs.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/text/PluralForms.h"
#include "pellor/platform/LocalizedStrings.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// The messages of one language.
struct MessageCatalog {
  /// Key to text, in UTF-8. The forms of a text that depends on a count are separated by zero characters.
  std::map<std::string, std::string, std::less<>> messages;
  PluralForms pluralForms;

  /// The first form of the text under `key`. Absent when there is none.
  std::optional<std::string> text(std::string_view key) const;
  /// The form of the text under `key` for that count; the first where the text lacks that form. Absent when there is
  /// none.
  std::optional<std::string> textForCount(std::string_view key, std::uint64_t count) const;
};

/// Reads one compiled catalog (.mo). Absent when the file is missing or damaged, and when it has texts that depend on a
/// count and its header says in no readable way how. The system's own reader shows a language only where a system
/// locale of it was generated; this one needs the file alone.
std::optional<MessageCatalog> readMessageCatalog(const std::filesystem::path& file);

/// The one bundle org.tapnote.Pellor, read when it is first asked for. Without a catalog of the user's language its
/// texts are English.
class GettextStrings final : public LocalizedStrings {
 public:
  using CatalogFolders = std::function<std::vector<std::filesystem::path>()>;

  /// The user's languages are those of LANGUAGE, in its order, else of the first of LC_ALL, LC_MESSAGES and LANG that
  /// is set; "C" and "POSIX" are English. Of `folders` the first with a catalog <language>/LC_MESSAGES/pellor.mo
  /// serves.
  explicit GettextStrings(CatalogFolders folders = catalogFolders, Environment environment = processEnvironment);

  std::shared_ptr<const Bundle> bundleWithIdentifier(std::string_view identifier) override;

  /// Where catalogs are looked for: share/locale in the folders above the program, so that it is found in the build
  /// tree and wherever the program was installed, then the folder in which this library was installed.
  static std::vector<std::filesystem::path> catalogFolders();

 private:
  const CatalogFolders _folders;
  const Environment _environment;
  Mutex _mutex;
  std::shared_ptr<const Bundle> _bundle PELLOR_GUARDED_BY(_mutex);
};

}  // namespace pellor
