#include "pellor/linux/internal/DataFolderTraces.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string_view>
#include <utility>

#include "pellor/linux/contacts/internal/ContactIndexFile.h"
#include "pellor/linux/contacts/internal/PersonInIndex.h"
#include "pellor/linux/files/internal/AsideFolder.h"
#include "pellor/linux/files/internal/Mentions.h"
#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/files/internal/RegularFile.h"
#include "pellor/linux/phone/CanonicalFormStore.h"
#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/linux/preferences/internal/PersonInCopies.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds LockLimit{4000};
// A draft is renamed within moments. An older one belongs to a program that was killed.
constexpr std::time_t LongestDraft = 60;
constexpr const char* DeviceFolderName = "device";

using Names = std::function<bool(const std::string& name)>;

Names beginningWith(std::string prefix) {
  return [prefix = std::move(prefix)](const std::string& name) {
    return name.starts_with(prefix) && !name.ends_with(".lock");
  };
}

bool isOld(const fs::path& file) {
  struct stat found {};
  return ::stat(file.c_str(), &found) == 0 && std::time(nullptr) - found.st_mtim.tv_sec > LongestDraft;
}

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

class DataFolderTraces::Pass {
 public:
  Pass(const DataFolderTraces& traces, ForgottenTraits& person, Purpose purpose)
      : _options(traces._options), _patience(traces._patience), _person(person), _erases(purpose == Purpose::erase) {}

  Erasure run() {
    learn();
    const Mentions mentions(_person);
    numbers(mentions);
    files(mentions, _options.folder, beginningWith("reachable-"), "memory of answers", "memories of answers");
    files(mentions, _options.folder / AsideFolderName, beginningWith(""), "file that was put aside",
          "files that were put aside");
    damagedIndexes();
    drafts(mentions);
    index();
    if (_erases) keep(_options.store->eraseUnusedSpace());
    copies();
    others(mentions);
    return std::move(_erasure);
  }

 private:
  std::vector<StoreCopies> copyFolders() const {
    std::vector<StoreCopies> folders;
    for (const std::string& name : namesIn(_options.folder))
      if (name.starts_with(StoreCopies::FolderName)) folders.emplace_back(_options.folder / name);
    return folders;
  }

  void learn() {
    for (const StoreCopies& copies : copyFolders()) _toldCopies += learnFromCopies(copies, _person).count;
  }

  void copies() {
    note(_toldCopies, "copy of the store", "copies of the store");
    if (!_erases) return;
    for (const StoreCopies& copies : copyFolders()) {
      const ToldCopies told = takeOutOfCopies(copies, _person);
      if (!told.problem.empty()) keep(KeptTrace{"a copy of the store", told.problem + "; forget again later"});
    }
  }

  // Also what was typed in search of the person. Lines are dropped that may be of another number with such an end:
  // forms are worked out again.
  void numbers(const Mentions& mentions) {
    const auto isTheirs = [&](std::string_view text) { return mentions.areTheText(text); };
    std::size_t count = 0;
    for (const std::string& name : namesIn(_options.folder)) {
      if (!name.starts_with("canonical-forms-") && !name.starts_with("shown-numbers-")) continue;
      const fs::path file = _options.folder / name;
      count += CanonicalFormStore::count(file, isTheirs);
      const auto error = _erases ? CanonicalFormStore::remove(file, isTheirs) : std::nullopt;
      if (error) keep(KeptTrace{"a memory of numbers", *error + "; forget again later"});
    }
    note(count, "remembered form of a number", "remembered forms of numbers");
  }

  // All that they hold can be asked for again, or was replaced before.
  void files(const Mentions& mentions, const fs::path& folder, const Names& concerns, const char* one,
             const char* many) {
    std::size_t count = 0;
    for (const std::string& name : namesIn(folder)) {
      if (!concerns(name) || !isMentionedIn(mentions, folder / name)) continue;
      ++count;
      if (_erases) remove(folder / name);
    }
    note(count, one, many);
  }

  // All of them: an index holds nothing that is not in the contacts, in more forms than those that are known here.
  void damagedIndexes() {
    const std::string prefix = contactIndexIn(_options.folder).filename().string() + ".damaged";
    for (const std::string& name : namesIn(_options.folder))
      if (_erases && name.starts_with(prefix)) remove(_options.folder / name);
  }

  void drafts(const Mentions& mentions) {
    std::vector<fs::path> folders = {_options.folder, _options.folder / DeviceFolderName};
    for (const std::string& name : namesIn(_options.folder))
      if (name.starts_with(StoreCopies::FolderName)) folders.push_back(_options.folder / name);
    for (const fs::path& folder : folders) {
      const auto isDraft = [&](const std::string& name) {
        const bool isNamedSo = name.starts_with('.') || name.find(".sqlite.new") != std::string::npos;
        return isNamedSo && isOld(folder / name);
      };
      files(mentions, folder, isDraft, "draft of a program that was killed", "drafts of programs that were killed");
    }
  }

  void index() {
    const PersonInIndex found = lookInIndex(_options.folder, _person, _patience);
    note(found.isRemembered ? 1 : 0, "contact that is gone", "");
    if (_erases) keep(eraseFromIndex(_options.folder, _person, _patience));
    if (found.isContact)
      keep(KeptTrace{"the contacts, and their index", "there is a card with this GUID, number or address"});
  }

  void others(const Mentions& mentions) {
    if (!_options.favorites.empty() && isFavorite(mentions))
      keep(KeptTrace{"the favorites", "they are the user's (pellor favorites remove)"});
    for (const std::string& name : namesIn(_options.folder / DeviceFolderName)) {
      if (!isMentionedIn(mentions, _options.folder / DeviceFolderName / name)) continue;
      return keep(KeptTrace{"what the paired device has",
                            "it goes when the device has taken the list over (pellor device status)"});
    }
  }

  // By one of the fields of a line.
  bool isFavorite(const Mentions& mentions) const {
    const std::string content = readRegularFile(_options.favorites).text.value_or("");
    for (std::string_view rest = content; !rest.empty();) {
      const std::size_t end = std::min(rest.find_first_of("\t\n"), rest.size());
      if (mentions.areTheText(rest.substr(0, end))) return true;
      rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return false;
  }

  static bool isMentionedIn(const Mentions& mentions, const fs::path& file) {
    constexpr std::size_t longest = std::size_t{1} << 31;
    const FileContent content = PrivateFile(file).read(longest);
    return content.text && mentions.areIn(*content.text);
  }

  void remove(const fs::path& file) {
    const auto error = PrivateFile(file).remove();
    if (error) keep(KeptTrace{file.string(), *error + "; forget again later"});
  }

  void note(std::size_t count, const char* one, const char* many) {
    if (count > 0) _erasure.found.push_back(counted(count, one, many));
  }

  void keep(std::optional<KeptTrace> trace) {
    if (trace) _erasure.kept.push_back(*std::move(trace));
  }

  const DataFolderTracesOptions& _options;
  const std::shared_ptr<LockPatience>& _patience;
  ForgottenTraits& _person;
  const bool _erases;
  std::size_t _toldCopies = 0;
  Erasure _erasure;
};

DataFolderTraces::DataFolderTraces(Process& process, DataFolderTracesOptions options)
    : _process(process),
      _options(std::move(options)),
      _patience(std::make_shared<LockPatience>(LockLimit)),
      _queue(SerialQueue::make(std::string(BundleIdentifier) + ".traces")) {}

// In a task of its own: contacts that are found to have changed are told of, and the caller may be in the midst of
// work.
void DataFolderTraces::erase(std::shared_ptr<ForgottenTraits> person, ErasedHandler erased) {
  _process.mainQueue().async([self = shared_from_this(), person = std::move(person), erased = std::move(erased)] {
    self->_options.updateContacts();
    self->_queue->async([self, person, erased] {
      Erasure erasure = Pass(*self, *person, Purpose::erase).run();
      self->_process.mainQueue().async([erased, erasure = std::move(erasure)] { erased(erasure); });
    });
  });
}

std::vector<std::string> DataFolderTraces::find(ForgottenTraits& person) {
  _options.updateContacts();
  return Pass(*this, person, Purpose::find).run().found;
}

}  // namespace pellor
