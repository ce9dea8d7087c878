#include "pellor/linux/contacts/internal/FavoritesFile.h"

#include <fcntl.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>

#include "pellor/linux/contacts/internal/ContactFolder.h"
#include "pellor/linux/contacts/internal/IndexedAddressBookHandle.h"
#include "pellor/linux/contacts/internal/MarkedFavorites.h"
#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/files/internal/RegularFile.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/linux/text/TextLimits.h"

namespace pellor {

namespace {

using Line = FavoritesFile::Line;

constexpr const char* Heading = "# GUID\tnumber or address\tname\n";

std::string nextField(std::string_view& text) {
  const std::size_t end = std::min(text.find('\t'), text.size());
  std::string field = cleanCardText(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return field;
}

Line lineOf(std::string_view text) {
  Line line;
  for (std::string* field : {&line.guid, &line.value, &line.name}) *field = nextField(text);
  if (isTooLongForDestination(line.value)) line.value.clear();
  line.name.resize(nameWithinLimit(line.name).size());
  return line;
}

// The fields are cleaned of the tabs and line ends that would make another line of them.
std::string textOf(const Line& line) {
  return cleanCardText(line.guid) + "\t" + cleanCardText(line.value) + "\t" + cleanCardText(line.name) + "\n";
}

bool isComment(const std::string& text) {
  return text.starts_with('#') || cleanCardText(text).empty() || !isUtf8(text);
}

Line lineFor(const ContactRecord& person) {
  FavoriteEntry entry = favoriteOf(person);
  return {person.recordGUID(), std::move(entry.value), std::move(entry.displayName)};
}

/// The lock is on the folder: the file itself is replaced by each edit.
std::optional<FileLock> lockFolderOfFavorites(const std::filesystem::path& folder, LockPatience& patience) {
  return FileLock::take(FileDescriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), patience);
}

}  // namespace

/// The file with its comments, each before the line that it stands above.
struct FavoritesFile::Content {
  struct Entry {
    std::string comments;
    Line line;
  };
  std::string heading;  ///< of a new file
  std::vector<Entry> entries;
  std::string closingComments;

  std::vector<Line> lines() const {
    std::vector<Line> result;
    result.reserve(entries.size());
    for (const Entry& entry : entries) result.push_back(entry.line);
    return result;
  }

  /// Takes these lines; comments go where their lines went, those of lines that are gone go with them.
  void setLines(std::vector<Line> lines) {
    std::multimap<std::string, std::string> comments;
    for (Entry& entry : std::exchange(entries, {})) comments.emplace(textOf(entry.line), std::move(entry.comments));
    for (Line& line : lines) {
      const std::string text = textOf(line);
      const auto known = comments.lower_bound(text);
      const bool isKnown = known != comments.end() && known->first == text;
      entries.push_back({isKnown ? std::move(known->second) : std::string(), std::move(line)});
      if (isKnown) comments.erase(known);
    }
  }
};

FavoritesFile::FavoritesFile(std::shared_ptr<IndexedAddressBook> addressBook,
                             const std::filesystem::path& contactsFolder)
    : _addressBook(std::move(addressBook)), _file(contactsFolder / FavoritesFileName), _log(_addressBook->log()) {}

void FavoritesFile::report(const std::string& problem) {
  if (!problem.empty() && problem != _reportedProblem) _log.log("%@", problem);
  _reportedProblem = problem;
}

std::optional<FavoritesFile::Content> FavoritesFile::read() {
  Content content;
  std::error_code error;
  const auto status = std::filesystem::status(_file, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    // Whether the user has such a file nobody knows without the folder.
    if (!std::filesystem::is_directory(_file.parent_path(), error)) return std::nullopt;
    auto marked = markedFavorites();
    if (!marked) return std::nullopt;
    for (Line& line : *marked) content.entries.push_back({{}, std::move(line)});
    content.heading = Heading;
    return content;
  }
  const FileContent found = readRegularFile(_file);
  std::istringstream stream(found.text.value_or(""));
  std::string text;
  std::string comments;
  while (std::getline(stream, text)) {
    if (isComment(text)) {
      comments += text + "\n";
    } else {
      content.entries.push_back({std::exchange(comments, {}), lineOf(text)});
    }
  }
  content.closingComments = comments;
  const bool isWhole = found.text.has_value();
  report(isWhole ? "" : "the favorites file " + _file.string() + " cannot be read");
  return isWhole ? std::optional(std::move(content)) : std::nullopt;
}

// Absent when the contacts cannot be read: a file that is written then would hide the marks for ever.
std::optional<std::vector<Line>> FavoritesFile::markedFavorites() {
  std::optional<std::vector<Line>> lines;
  _addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    std::vector<Line> marked;
    for (const RecordRef& person : _addressBook->sharedHandle().markedFavorites()) marked.push_back(lineFor(*person));
    if (addressBook.isReadable()) lines = std::move(marked);
  });
  return lines;
}

FavoriteEntry FavoritesFile::entry(AddressBook& addressBook, const Line& line) {
  FavoriteEntry result{line.name, line.value, InvalidRecordID};
  RecordRef person = line.guid.empty() ? nullptr : addressBook.copyPersonMatchingGUID(line.guid);
  if (!person && !line.value.empty()) {
    if (const auto people = addressBook.orderedPeopleForDestination(line.value)) person = people->front();
  }
  if (!person) return result;
  const Line known = lineFor(*person);
  result.abRecordID = person->recordID();
  if (result.displayName.empty()) result.displayName = known.name;
  if (result.value.empty()) result.value = known.value;
  return result;
}

// Such as a contact that is gone, or a name written where the GUID belongs.
void FavoritesFile::reportUnreachable(const Line& line) {
  _log.log("favorite %@ is left out: it has no contact, no number and no address",
           redactable(line.name.empty() ? line.guid : line.name));
}

Answer<std::vector<FavoriteEntry>> FavoritesFile::favoriteEntries() {
  using Entries = Answer<std::vector<FavoriteEntry>>;
  std::vector<FavoriteEntry> entries;
  bool isReadable = false;
  _addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const auto known = lines();
    if (!known) return;
    for (const Line& line : *known) {
      FavoriteEntry found = entry(addressBook, line);
      if (found.abRecordID == InvalidRecordID && found.value.empty()) {
        reportUnreachable(line);
      } else {
        entries.push_back(std::move(found));
      }
    }
    isReadable = addressBook.isReadable();
  });
  if (!isReadable) return Entries::unreadable();
  return entries.empty() ? Entries::none() : Entries::some(std::move(entries));
}

std::optional<std::vector<Line>> FavoritesFile::lines() {
  const auto content = read();
  if (!content) return std::nullopt;
  return content->lines();
}

FavoritesFile::Outcome FavoritesFile::edit(const Edit& change) {
  const auto lock = lockFolderOfFavorites(_file.parent_path(), _patience);
  if (!lock) {
    report(lockError(_file.parent_path()));
    return Outcome::failed;
  }
  auto content = read();
  if (!content) return Outcome::failed;
  std::vector<Line> lines = content->lines();
  if (!change(lines)) return Outcome::refused;
  content->setLines(std::move(lines));
  return write(*content) ? Outcome::done : Outcome::failed;
}

bool FavoritesFile::write(const Content& content) {
  std::string text = content.heading;
  for (const Content::Entry& entry : content.entries) text += entry.comments + textOf(entry.line);
  text += content.closingComments;
  const auto error = replacePrivateFile(_file, text);
  report(error.value_or(std::string()));
  return !error;
}

}  // namespace pellor
