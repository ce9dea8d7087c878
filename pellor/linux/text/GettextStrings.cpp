#include "pellor/linux/text/GettextStrings.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "pellor/linux/files/internal/RegularFile.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr const char* CatalogFile = "LC_MESSAGES/pellor.mo";
constexpr char EndOfForm = '\0';

const MessageCatalog& englishCatalog() {
  static const MessageCatalog catalog = {
      .messages = {{"FAVORITES", "Favorites"}, {"NUMBERED_FAVORITES_FORMAT_STRING", "Favorites %u"}},
      .pluralForms = {},
  };
  return catalog;
}

std::string_view firstForm(std::string_view text) { return text.substr(0, text.find(EndOfForm)); }

// Empty when the text has fewer forms.
std::string_view formAt(std::string_view text, std::size_t index) {
  for (; index > 0; --index) {
    const std::size_t end = text.find(EndOfForm);
    if (end == std::string_view::npos) return {};
    text.remove_prefix(end + 1);
  }
  return firstForm(text);
}

std::string_view valueOfField(std::string_view header, std::string_view field) {
  while (!header.empty()) {
    const std::string_view line = header.substr(0, header.find('\n'));
    if (line.starts_with(field)) return line.substr(field.size());
    header.remove_prefix(std::min(line.size() + 1, header.size()));
  }
  return {};
}

/// A compiled catalog: a header of 32-bit words, and two tables of (length, offset), of the keys and of the texts.
class CatalogReader {
 public:
  /// The content has to outlive the reader.
  explicit CatalogReader(std::string_view content) : _content(content) {}

  std::optional<MessageCatalog> catalog() {
    constexpr std::uint32_t magic = 0x950412de;
    const std::uint32_t found = rawWord(0).value_or(0);
    _isSwapped = found == swapped(magic);
    if (found != magic && !_isSwapped) return std::nullopt;
    const auto count = word(8), keys = word(12), texts = word(16);
    if (!count || !keys || !texts) return std::nullopt;
    MessageCatalog catalog;
    std::string_view header;
    bool hasForms = false;
    for (std::uint64_t index = 0; index < *count; ++index) {
      const auto key = string(*keys + index * 8), text = string(*texts + index * 8);
      if (!key || !text) return std::nullopt;
      if (key->empty()) header = *text;
      // The key of a text with several forms is followed by the one that stands for many.
      const std::string_view name = firstForm(*key);
      hasForms |= name.size() < key->size();
      if (!name.empty() && !firstForm(*text).empty()) catalog.messages.emplace(name, *text);
    }
    // Where no text needs it the field may be anything: an editor's template, say.
    if (hasForms && !readPluralForms(header, catalog.pluralForms)) return std::nullopt;
    return catalog;
  }

 private:
  static bool readPluralForms(std::string_view header, PluralForms& forms) {
    const std::string_view field = valueOfField(header, "Plural-Forms:");
    if (field.empty()) return true;
    const auto read = PluralForms::read(field);
    if (read) forms = *read;
    return read.has_value();
  }

  static std::uint32_t swapped(std::uint32_t word) {
    return word << 24 | (word & 0xFF00) << 8 | (word >> 8 & 0xFF00) | word >> 24;
  }

  std::optional<std::uint32_t> rawWord(std::uint64_t offset) const {
    std::uint32_t word = 0;
    if (offset + sizeof word > _content.size()) return std::nullopt;
    std::memcpy(&word, _content.data() + offset, sizeof word);
    return word;
  }

  std::optional<std::uint32_t> word(std::uint64_t offset) const {
    const auto raw = rawWord(offset);
    return raw && _isSwapped ? swapped(*raw) : raw;
  }

  std::optional<std::string_view> string(std::uint64_t entry) const {
    const auto length = word(entry), offset = word(entry + 4);
    if (!length || !offset || std::uint64_t{*offset} + *length > _content.size()) return std::nullopt;
    return _content.substr(*offset, *length);
  }

  std::string_view _content;
  bool _isSwapped = false;
};

class MessageBundle final : public Bundle {
 public:
  explicit MessageBundle(MessageCatalog catalog) : _catalog(std::move(catalog)) {}

  std::string identifier() const override { return BundleIdentifier; }

  std::string localizedString(std::string_view key, std::string_view defaultValue) const override {
    for (const MessageCatalog* catalog : {&_catalog, &englishCatalog()}) {
      if (auto text = catalog->text(key)) return *std::move(text);
    }
    return std::string(defaultValue.empty() ? key : defaultValue);
  }

  std::string localizedStringForCount(std::string_view key, std::string_view one, std::string_view other,
                                      std::uint64_t count) const override {
    if (auto text = _catalog.textForCount(key, count)) return *std::move(text);
    return Bundle::localizedStringForCount(key, one, other, count);
  }

 private:
  MessageCatalog _catalog;
};

// "de_AT.UTF-8@euro" is looked for as "de_AT" and as "de".
std::vector<std::string> catalogNames(std::string_view locale) {
  const std::string name(locale.substr(0, locale.find_first_of(".@")));
  const std::string language = name.substr(0, name.find('_'));
  if (language.find('/') != std::string::npos) return {};
  return {name, language};
}

std::string localeOf(const Environment& environment) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    std::string locale = environment(variable).value_or("");
    if (!locale.empty()) return locale;
  }
  return "C";
}

std::vector<std::string> languagesOf(const Environment& environment) {
  const std::string locale = localeOf(environment);
  // As everywhere, "C" is a wish for plain English, whatever LANGUAGE says.
  if (locale == "C" || locale == "POSIX") return {};
  std::string list = environment("LANGUAGE").value_or("");
  if (list.empty()) list = locale;
  std::vector<std::string> languages;
  for (std::size_t start = 0; start <= list.size();) {
    const std::size_t end = std::min(list.find(':', start), list.size());
    if (end > start) languages.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return languages;
}

MessageCatalog catalogFor(const std::vector<std::string>& languages, const std::vector<fs::path>& folders) {
  for (const std::string& language : languages) {
    if (language == "en" || language.starts_with("en_")) return {};
    for (const std::string& name : catalogNames(language)) {
      for (const fs::path& folder : folders) {
        if (auto catalog = readMessageCatalog(folder / name / CatalogFile)) return *std::move(catalog);
      }
    }
  }
  return {};
}

}  // namespace

std::optional<std::string> MessageCatalog::text(std::string_view key) const {
  const auto found = messages.find(key);
  return found == messages.end() ? std::nullopt : std::optional<std::string>(firstForm(found->second));
}

std::optional<std::string> MessageCatalog::textForCount(std::string_view key, std::uint64_t count) const {
  const auto found = messages.find(key);
  if (found == messages.end()) return std::nullopt;
  const std::string_view form = formAt(found->second, pluralForms.formFor(count));
  return std::string(form.empty() ? firstForm(found->second) : form);
}

std::optional<MessageCatalog> readMessageCatalog(const fs::path& file) {
  const FileContent content = readRegularFile(file);
  return CatalogReader(content.text.value_or("")).catalog();
}

GettextStrings::GettextStrings(CatalogFolders folders, Environment environment)
    : _folders(std::move(folders)), _environment(std::move(environment)) {}

// Few programs show one of these texts: the catalog of the others is not looked for.
std::shared_ptr<const Bundle> GettextStrings::bundleWithIdentifier(std::string_view identifier) {
  if (identifier != BundleIdentifier) return nullptr;
  const MutexLock lock(_mutex);
  if (!_bundle) _bundle = std::make_shared<MessageBundle>(catalogFor(languagesOf(_environment), _folders()));
  return _bundle;
}

std::vector<fs::path> GettextStrings::catalogFolders() {
  std::vector<fs::path> folders;
  std::error_code error;
  fs::path above = fs::read_symlink("/proc/self/exe", error).parent_path();
  constexpr int levels = 4;
  for (int level = 0; level < levels && above.has_relative_path(); ++level) {
    folders.push_back(above / "share/locale");
    above = above.parent_path();
  }
  folders.emplace_back(PELLOR_LOCALE_FOLDER);
  return folders;
}

}  // namespace pellor
