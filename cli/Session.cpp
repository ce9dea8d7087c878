#include "cli/Session.h"

#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "cli/CommandError.h"
#include "cli/Services.h"
#include "cli/ShownNumbers.h"
#include "pellor/linux/StandardErrorLog.h"
#include "pellor/linux/contacts/UserContacts.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/platform/Platform.h"

namespace pellor::cli {
namespace {

namespace fs = std::filesystem;

// In seconds. After each pause a store that fails is noticed; the limit is for one that is slow, and for other programs
// that keep changing the list.
constexpr double SettlePause = 0.2;
constexpr double SettleLimit = 30;

// Another one when a member comes to mean something else, or goes; not when members are added.
constexpr int JsonVersion = 1;

// It is the user's own terminal: names and numbers are shown.
std::shared_ptr<LogSink> logSink(const CommonOptions& options) {
  if (!options.verbose) return logSinkFor(options.configuration);
  return std::make_shared<StandardErrorLog>(StandardErrorLog::Verbosity::verbose, LogEntry::Private::shown);
}

LinuxPlatformOptions platformOptions(const CommonOptions& options, ProgressLine& progress) {
  LinuxPlatformOptions result = platformOptionsFor(options.configuration);
  result.noticesChanges = options.noticesChanges;
  result.keepsWritesToItself = options.isDry;
  result.indexProgress = [&progress](std::size_t done, std::size_t total) { progress.show(done, total); };
  return result;
}

}  // namespace

Session::Session(const CommonOptions& options)
    : _options(options), _progress("reading contacts"), _process(logSink(_options)) {}

void Session::open() {
  _platform.emplace(_process, platformOptions(_options, _progress));
  const std::string stored = _platform->region();
  const Process::Scope scope(_process);
  _process.local<ShownNumbers>().keepIn(_platform->dataFolder(), stored);
  const auto asked = _options.configuration.text("region");
  if (!asked || *asked == stored) return;
  throw UsageError("the store is kept in region " + stored + ", not " + *asked + "; \"pellor settings region " +
                   *asked + "\" changes it");
}

Session::~Session() {
  const bool isWritten = !_isDropped && settle();
  _progress.remove();
  if (_platform) {
    for (const std::string& remark : store().takeRemarks()) writeError(printable(remark));
    if (_platform->isRegionAssumed()) {
      writeError("no locale names a country, so the new store reads national numbers as in " + _platform->region() +
                 "; \"pellor settings region XX\" changes it");
    }
  }
  _list.reset();
  _platform.reset();
  // Its end would otherwise go on trying, and perhaps write what the user was told is not saved.
  if (!isWritten) _process.abandon();
}

FriendList& Session::list(const std::function<void(FriendList&)>& beforeLoad) {
  if (_list) return *_list;
  _list = FriendList::openDomain(_options.domain(), "pellor", beforeLoad);
  // Another process may hold the store for a moment.
  if (!_list->isLoaded()) settle();
  _progress.remove();
  if (!_list->isLoaded()) {
    _list.reset();
    throw CommandError("the friend list cannot be read: " + storeProblem());
  }
  _list->setService(_options.configuration.text("service"));
  return *_list;
}

void Session::withAddressBook(const std::function<void(AddressBook&)>& work) {
  platformOf(_process).addressBook->performWithAddressBook(work);
  _progress.remove();
}

void Session::requireContacts() {
  const auto& folder = _platform->contactsFolder();
  std::error_code ignored;
  if (folder && !fs::is_directory(*folder, ignored)) {
    throw CommandError("there is no contacts folder " + printable(folder->string()) +
                       ": put vCard files there (pellor contacts import FILE), or name another folder with --contacts");
  }
  const auto error = _platform->contacts().readError();
  _progress.remove();
  const std::string contacts = folder ? "the contacts in " + printable(folder->string()) : "the contacts";
  const std::string more = folder ? "" : " (pellor doctor tells more)";
  if (error) throw CommandError(contacts + " cannot be read: " + *error + more);
}

void Session::requireWritableStore() {
  if (!store().isWritable()) throw CommandError("nothing was changed: " + storeProblem());
  _before = store().writeCounts();
}

void Session::throwNotSaved() {
  const auto [written, unknown] = store().writeCounts();
  if (unknown > _before.unknown)
    throw CommandError("perhaps it was saved, which cannot be told now (pellor list shows it): " + storeProblem());
  if (written > _before.written)
    throw CommandError("not all of it was saved (pellor list shows what was): " + storeProblem());
  throw CommandError("nothing was saved: " + storeProblem());
}

void Session::commit() {
  if (settle()) return;
  if (!store().lastError().empty()) throwNotSaved();
  throw CommandError("not saved: other programs keep changing the list");
}

bool Session::settle() {
  const double end = _process.now() + SettleLimit;
  while (_process.now() < end) {
    if (_process.settle(SettlePause)) return true;
    if (!store().lastError().empty()) return false;
  }
  return false;
}

std::string Session::storeProblem() {
  const std::string error = store().lastError();
  const bool isFile = _options.configuration.text("store") == "sqlite";
  const std::string place = isFile ? printable(_platform->dataFolder().string()) : "PostgreSQL";
  const bool hasCopies = !store().copies().list().empty();
  return "the store in " + place + (error.empty() ? " is busy" : ": " + error) +
         (hasCopies ? " (pellor backup lists its copies)" : "");
}

void Session::answer(const std::function<std::string()>& text, const std::function<Json()>& json) {
  if (!_options.json) return void(_answer = readable(text()));
  Json object = json();
  if (isDry()) object["dryRun"] = true;
  _answer = textOf(object) + "\n";
}

void Session::answerNow(bool isChanged, const std::function<std::string()>& text, const std::function<Json()>& json) {
  answer([&] { return (isDry() && isChanged ? "would be: " : "") + text(); }, json);
}

std::string textOf(const Json& object) {
  Json versioned = {{"version", JsonVersion}};
  versioned.update(object);
  return visibleJson(versioned.dump(-1, ' ', false, Json::error_handler_t::replace));
}

}  // namespace pellor::cli
