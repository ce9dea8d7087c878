#include "pellor/linux/contacts/ContactImport.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <span>
#include <system_error>

#include "pellor/linux/contacts/internal/CardFile.h"
#include "pellor/linux/contacts/internal/ContactFolder.h"
#include "pellor/linux/contacts/internal/EVCardContact.h"
#include "pellor/linux/contacts/internal/ImportedText.h"
#include "pellor/linux/contacts/internal/OfferedCards.h"
#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor {

namespace {

namespace fs = std::filesystem;

// As many files may stand in the place of a new one.
constexpr int MostNames = 100;

// In files or cards.
constexpr std::size_t ImportProgressStep = 100;

void tell(const std::function<void(std::size_t, std::size_t)>& progress, std::size_t done, std::size_t total) {
  if (progress && done % ImportProgressStep == 0) progress(done, total);
}

std::string nameOf(const ContactCard& card) {
  for (const auto* name :
       {&card.formattedName, &card.givenName, &card.familyName, &card.nickname, &card.organization}) {
    if (*name) return **name;
  }
  return {};
}

bool saysNothing(const ContactCard& card) { return nameOf(card).empty() && card.phones.empty() && card.emails.empty(); }

/// A new file that has no name in the folder yet; gone with the object unless it got one.
class Draft {
 public:
  Draft(const fs::path& folder, const std::string& file, const std::string& text)
      : _path(folder / ("." + file + "." + std::to_string(::getpid()))) {
    ::unlink(_path.c_str());  // of a program that had the same number and did not come to its end
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    _isWritten = createPrivateFile(_path, std::span(bytes, text.size())) == FileCreation::created;
  }
  ~Draft() {
    const int code = errno;
    if (_isWritten) ::unlink(_path.c_str());
    errno = code;
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;

  /// False, with errno set, when it is not there.
  bool isWritten() const { return _isWritten; }

  /// Gives it that name, which no other file has. False, with errno set, when that does not work.
  bool become(const fs::path& file) {
    if (::renameat2(AT_FDCWD, _path.c_str(), AT_FDCWD, file.c_str(), RENAME_NOREPLACE) == 0) return named();
    if (errno != EINVAL && errno != ENOSYS) return false;
    // The file system cannot do that in one step.
    if (::access(file.c_str(), F_OK) != 0) return replace(file);
    errno = EEXIST;
    return false;
  }
  bool replace(const fs::path& file) { return ::rename(_path.c_str(), file.c_str()) == 0 && named(); }

 private:
  bool named() {
    _isWritten = false;
    return true;
  }

  const fs::path _path;
  bool _isWritten = false;
};

// What was renamed stays so when the system ends.
void syncFolder(const fs::path& folder) {
  const FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened) ::fsync(opened.get());
}

}  // namespace

ContactImport::ContactImport(ContactImportOptions options) : _options(std::move(options)) {
  requireFolder();
  readFolder();
}

void ContactImport::requireFolder() const {
  const fs::path& folder = _options.folder;
  std::error_code ignored;
  const auto type = fs::status(folder, ignored).type();
  if (type == fs::file_type::not_found && _options.makesFolder) return;
  if (type == fs::file_type::not_found) throw ContactImportError("there is no contacts folder " + folder.string());
  if (type != fs::file_type::directory)
    throw ContactImportError(folder.string() + " is no folder: contacts are imported into a folder");
  if (::faccessat(AT_FDCWD, folder.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) != 0)
    throw ContactImportError(systemError("nothing can be imported into the contacts folder", folder));
}

void ContactImport::readFolder() {
  std::error_code ignored;
  if (!fs::exists(_options.folder, ignored)) return;
  try {
    ContactFolder folder(_options.folder);
    const auto files = folder.list();
    std::size_t done = 0;
    for (const auto& [file, signature] : files) {
      CardContent content = folder.read(file);
      if (content.text) readContacts(file, std::move(*content.text));
      tell(_options.readingProgress, ++done, files.size());
    }
  } catch (const CardSourceError& error) {
    throw ContactImportError(error.what());
  }
}

void ContactImport::readContacts(const std::string& file, std::string bytes) {
  const std::vector<OfferedCard> cards = offeredCards(std::move(bytes));
  for (const OfferedCard& card : cards) {
    if (!card.problem.empty() || card.line > 0) continue;
    const CardReading reading = readContactCard(card.text);
    if (!reading.card) continue;
    note({reading.card->uid.value_or(""),
          file,
          comparedTextHash(card.text),
          cardValueHash(*reading.card),
          cards.size() == 1,
          {}});
  }
}

void ContactImport::note(Contact contact) {
  Contact& noted = _contacts.emplace_back(std::move(contact));
  if (!noted.guid.empty()) _byUid.try_emplace(std::string(comparedUid(noted.guid)), &noted);
  _byValues.emplace(noted.valueHash, &noted);
}

ContactImport::Contact* ContactImport::contactWith(const std::string& uid) {
  const auto found = _byUid.find(std::string(comparedUid(uid)));
  return found == _byUid.end() ? nullptr : found->second;
}

ContactImport::Contact* ContactImport::contactWith(std::int64_t valueHash, bool withoutUid) {
  const auto [first, last] = _byValues.equal_range(valueHash);
  const auto found =
      std::find_if(first, last, [&](const auto& entry) { return !withoutUid || entry.second->guid.empty(); });
  return found == last ? nullptr : found->second;
}

void ContactImport::add(const std::string& file, std::string bytes) {
  const std::size_t before = _result.imported.size();
  const std::vector<OfferedCard> cards = offeredCards(std::move(bytes));
  for (std::size_t index = 0; index < cards.size(); ++index) {
    const OfferedCard& card = cards[index];
    take({file, card.number, card.line, card.name}, card);
    tell(_options.takingProgress, index + 1, cards.size());
  }
  if (_result.imported.size() > before && !_options.isDry) syncFolder(_options.folder);
}

void ContactImport::leaveOut(const std::string& file, const std::string& reason) {
  leaveOut(CardOrigin{file, 0, 0, {}}, reason);
}

void ContactImport::take(const CardOrigin& origin, const OfferedCard& card) {
  if (!card.problem.empty()) return leaveOut(origin, card.problem);
  const CardReading reading = readContactCard(card.text);
  if (!reading.card) return leaveOut(origin, reading.problem);
  if (saysNothing(*reading.card)) return leaveOut(origin, "it has neither a name nor a number or address");
  CardOrigin named = origin;
  named.name = nameOf(*reading.card);
  const bool hasUid = reading.card->uid.has_value();
  const std::int64_t valueHash = cardValueHash(*reading.card);
  const std::string uid = hasUid ? *reading.card->uid : uidMadeOf(valueHash);
  const std::string text = hasUid ? card.text : withUid(card.text, uid);
  if (Contact* known = contactWith(uid)) return takeKnown(named, *known, text, valueHash);
  if (const Contact* known = contactWith(valueHash, hasUid)) {
    _result.known.push_back({named, known->guid});
    return;
  }
  create({uid, {}, comparedTextHash(text), valueHash, true, named}, text);
}

void ContactImport::takeKnown(const CardOrigin& origin, Contact& contact, const std::string& text,
                              std::int64_t valueHash) {
  const bool differs = comparedTextHash(text) != contact.textHash;
  // Nobody can tell which one of them is meant.
  if (contact.origin && valueHash != contact.valueHash) {
    const std::string other = contact.origin->name.empty() ? "another card" : contact.origin->name;
    return leaveOut(origin, "its UID is that of " + other + ", which was just imported");
  }
  if (differs && _options.replacesKnown && !contact.origin) return replace(origin, contact, text, valueHash);
  _result.known.push_back({origin, contact.guid, differs});
}

void ContactImport::create(Contact contact, const std::string& text) {
  const auto error = _options.isDry ? std::nullopt : createPrivateFolder(_options.folder);
  if (error) return leaveOut(*contact.origin, *error);
  const CardOrigin origin = *contact.origin;
  if (createFile(contact, text)) {
    _result.imported.push_back({origin, contact.guid, contact.file});
    return note(std::move(contact));
  }
  const int code = errno;
  // Another program that imports at the same time may have been faster.
  if (Contact* known = contactWith(contact.guid)) return takeKnown(origin, *known, text, contact.valueHash);
  errno = code;
  leaveOut(origin, systemError("it cannot be written to", _options.folder));
}

/// Gives the contact its file. False, with errno set, when that does not work; EEXIST also when there is a file with
/// the contact's UID, which is then known.
bool ContactImport::createFile(Contact& contact, const std::string& text) {
  const std::string base = fileNameOf(comparedUid(contact.guid));
  contact.file = base + ".vcf";
  if (_options.isDry) return true;
  Draft draft(_options.folder, contact.file, text);
  if (!draft.isWritten()) return false;
  for (int number = 2; !draft.become(_options.folder / contact.file); ++number) {
    if (errno != EEXIST || number > MostNames) return false;
    CardContent other = ContactFolder(_options.folder).read(contact.file);
    if (other.text && !contactWith(contact.guid)) readContacts(contact.file, std::move(*other.text));
    errno = EEXIST;
    if (contactWith(contact.guid)) return false;
    contact.file = base + "-" + std::to_string(number) + ".vcf";
  }
  return true;
}

/// False, with errno set, when that does not work.
bool ContactImport::rewrite(const std::string& file, const std::string& text) const {
  Draft draft(_options.folder, file, text);
  return draft.isWritten() && draft.replace(_options.folder / file);
}

void ContactImport::replace(const CardOrigin& origin, Contact& contact, const std::string& text,
                            std::int64_t valueHash) {
  if (!contact.isAlone)
    return leaveOut(origin, "it differs from the card that is there, whose file " + contact.file +
                                " holds others too and is not rewritten");
  if (!_options.isDry && !rewrite(contact.file, text))
    return leaveOut(origin, systemError("it cannot be written to", _options.folder));
  contact.textHash = comparedTextHash(text);
  contact.valueHash = valueHash;
  contact.origin = origin;
  _result.imported.push_back({origin, contact.guid, contact.file, true});
}

}  // namespace pellor
