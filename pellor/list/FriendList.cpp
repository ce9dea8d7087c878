#include "pellor/list/FriendList.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLFavoritesImport.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/list/ContactFinding.h"
#include "pellor/list/internal/FriendExplanation.h"
#include "pellor/list/internal/ListFeed.h"
#include "pellor/list/internal/ListMirror.h"
#include "pellor/list/internal/ListSteps.h"
#include "pellor/list/internal/ReachabilityOfFriends.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/NotificationCenter.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

/// The lists of a process.
struct OpenLists {
  ~OpenLists() {
    for (const auto& steps : unstored) steps->abandon();
  }

  std::map<const PLFriendsManager*, std::weak_ptr<void>> cores;
  /// Those of which somebody is to be told yet.
  std::set<std::shared_ptr<ListSteps>> unstored;
};

}  // namespace

class FriendList::Core : public std::enable_shared_from_this<Core> {
 public:
  explicit Core(std::shared_ptr<PLFriendsManager> manager)
      : _process(Process::current()),
        _manager(std::move(manager)),
        _mirror(_manager),
        _feed(std::make_shared<ListFeed>(_process, _mirror, [this] { return isLoaded(); })),
        _steps(_process, _manager, _mirror, *_feed, [this](bool hasUnstored) { keep(hasUnstored); }) {}
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  /// The one of that manager.
  static std::shared_ptr<Core> of(std::shared_ptr<PLFriendsManager> manager, std::string program) {
    auto& cores = Process::current().local<OpenLists>().cores;
    std::erase_if(cores, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<void>& known = cores[manager.get()];
    auto core = std::static_pointer_cast<Core>(known.lock());
    const bool isNew = !core;
    if (isNew) known = core = std::make_shared<Core>(std::move(manager));
    // The steps that the start makes bear it already.
    if (!program.empty()) core->steps().setProgram(std::move(program));
    if (isNew) core->start();
    return core;
  }

  void start() {
    _feed->note(ChangeOrigin::load);
    _manager->editor().setStepClient(std::shared_ptr<PLStepClient>(shared_from_this(), &_steps));
    listen(PLFriendsManagerChangedNotification, &Core::listChanged);
    listen(PLFriendsManagerGroupListChanged, &Core::pagesChanged);
    listen(PLFriendGroupTitleChangedNotification, &Core::titleChanged);
    listen(PLPersonValuesChangedNotification, &Core::personChanged);
    listen(PLFriendsManagerDestinationStatusUpdatedNotification, &Core::statusesChanged);
    listen(PLFriendsManagerStoreTroubleChangedNotification, &Core::storeTroubleChanged);
    listen(platformOf(_process).addressBook->addressBookChangedNotification(), &Core::contactsChanged);
    if (_manager->storeTrouble()) _feed->noteTrouble(trouble());
  }

  bool isLoaded() const { return _manager->isLoaded(); }
  /// What the store fails at, as the store says it.
  std::optional<StoreTrouble> trouble() const {
    const auto trouble = _manager->storeTrouble();
    if (!trouble) return std::nullopt;
    const bool isReading = *trouble == PLStoreTrouble::reading;
    std::string text = platformOf(_process).preferences->lastError();
    if (text.empty()) text = isReading ? "the list cannot be read" : "the list cannot be stored";
    return StoreTrouble{isReading ? StoreTrouble::Kind::reading : StoreTrouble::Kind::writing, std::move(text)};
  }
  Process& process() const { return _process; }
  const Snapshot& current() { return _feed->noteRest(); }
  ListFeed& feed() { return *_feed; }
  ListSteps& steps() { return _steps; }
  std::shared_ptr<PLPerson> personWith(FriendId id) const { return _mirror.ids().personWith(id); }

  PLFriendsManager& manager() { return *_manager; }
  std::vector<FriendId> idsOf(const std::vector<std::shared_ptr<PLPerson>>& friends) {
    current();
    std::vector<FriendId> ids;
    for (const auto& person : friends)
      if (const auto id = _mirror.ids().knownId(*person)) ids.push_back(*id);
    return ids;
  }
  void setService(std::optional<std::string> name) {
    _manager->setServiceName(std::move(name));
    _mirror.noteChangeOfStatuses();
    _feed->tellSoon();
  }

  /// The search of the list of now.
  FriendSearch& search() {
    const Snapshot& now = current();
    if (!_search || _search->list() != now) _search = std::make_unique<FriendSearch>(now);
    return *_search;
  }

 private:
  void keep(bool hasUnstored) {
    const std::shared_ptr<ListSteps> steps(shared_from_this(), &_steps);
    auto& unstored = _process.local<OpenLists>().unstored;
    hasUnstored ? void(unstored.insert(steps)) : void(unstored.erase(steps));
  }

  void listen(std::string_view name, void (Core::*told)(const Notification&)) {
    _observations.push_back(_process.notificationCenter().addObserver(
        std::string(name), [this, told](const Notification& notification) { (this->*told)(notification); }));
  }

  void listChanged(const Notification& notification) {
    if (notification.object != _manager) return;
    if (const auto* log = notification.userInfoAs<PLChangeLog>())
      for (const auto& [person, types] : log->entries())
        if (types.contains(PLFriendsManagerPersonUpdated)) _mirror.noteChange(person);
    _feed->tellSoon();
  }
  void pagesChanged(const Notification&) { _feed->tellSoon(); }
  void titleChanged(const Notification&) {
    _mirror.noteChangeOfTitles();
    _feed->tellSoon();
  }
  void personChanged(const Notification& notification) {
    const auto person = notification.objectAs<PLPerson>();
    if (!person || !_mirror.ids().knownId(*person)) return;
    _mirror.noteChange(person);
    _feed->tellSoon();
  }
  void statusesChanged(const Notification&) {
    _mirror.noteChangeOfStatuses();
    _feed->tellSoon();
  }
  void storeTroubleChanged(const Notification& notification) {
    if (notification.object == _manager) _feed->noteTrouble(trouble());
  }
  void contactsChanged(const Notification&) {
    _search.reset();
    _mirror.noteChangeOfContacts();
    _feed->tellSoon();
  }

  Process& _process;
  const std::shared_ptr<PLFriendsManager> _manager;
  ListMirror _mirror;
  const std::shared_ptr<ListFeed> _feed;
  ListSteps _steps;
  std::vector<std::shared_ptr<Observation>> _observations;
  std::unique_ptr<FriendSearch> _search;
};

std::unique_ptr<FriendList> FriendList::open(std::shared_ptr<PLFriendsManager> manager, std::string program) {
  return std::unique_ptr<FriendList>(new FriendList(Core::of(std::move(manager), std::move(program))));
}

std::unique_ptr<FriendList> FriendList::openDomain(const std::string& domain, std::string program) {
  return open(PLFriendsManager::managerForDomain(domain), std::move(program));
}

std::unique_ptr<FriendList> FriendList::openDomain(const std::string& domain, std::string program,
                                                   const std::function<void(FriendList&)>& beforeLoad) {
  if (!beforeLoad) return openDomain(domain, std::move(program));
  std::unique_ptr<FriendList> list;
  const auto manager = PLFriendsManager::managerForDomain(domain, [&](const std::shared_ptr<PLFriendsManager>& made) {
    list = open(made, program);
    beforeLoad(*list);
  });
  return list ? std::move(list) : open(manager, std::move(program));
}

FriendList::FriendList(std::shared_ptr<Core> core) : _core(std::move(core)), _life(std::make_shared<char>()) {}

FriendList::~FriendList() = default;

bool FriendList::isLoaded() const { return _core->isLoaded(); }

std::optional<StoreTrouble> FriendList::trouble() const { return _core->trouble(); }

Snapshot FriendList::snapshot() { return _core->current(); }

std::shared_ptr<Observation> FriendList::observe(ListObserver observer) {
  return _core->feed().observe(std::move(observer), _life);
}

StepAnswer FriendList::plan(std::span<const Edit> edits) { return _core->steps().plan(edits); }

ExportedList FriendList::exported() { return _core->steps().exported(); }

ImportAnswer FriendList::import(const ExportedList& list, ImportMode mode, StoredHandler stored) {
  return _core->steps().import(list, mode, std::move(stored));
}

ImportAnswer FriendList::planImport(const ExportedList& list, ImportMode mode) {
  return _core->steps().planImport(list, mode);
}

std::vector<HistoryStep> FriendList::history() { return _core->steps().history().summaries(); }

UndoAnswer FriendList::undo(const std::string& step, StoredHandler stored) {
  return _core->steps().undo(step, std::move(stored));
}

UndoAnswer FriendList::redo(StoredHandler stored) { return _core->steps().redo(std::move(stored)); }

UndoAnswer FriendList::planUndo(const std::string& step) { return _core->steps().planUndo(step); }

UndoAnswer FriendList::planRedo() { return _core->steps().planRedo(); }

ForgetAnswer FriendList::forget(FriendId id, ForgottenHandler forgotten) {
  return _core->steps().forget(id, std::move(forgotten));
}

ForgetAnswer FriendList::forget(std::string_view who, ForgottenHandler forgotten) {
  return _core->steps().forget(std::string(who), std::move(forgotten));
}

ForgetAnswer FriendList::planForget(FriendId id) { return _core->steps().planForget(id); }

ForgetAnswer FriendList::planForget(std::string_view who) { return _core->steps().planForget(std::string(who)); }

std::optional<Explanation> FriendList::why(FriendId id) {
  const auto person = _core->personWith(id);
  if (!person || !snapshot().placeOf(id)) return std::nullopt;
  Explanation explanation = _core->steps().explanation(id);
  explainByContacts(explanation, *person);
  explanation.isReachabilityChecked = checksReachability();
  explanation.reachability = reachability(id);
  return explanation;
}

StepAnswer FriendList::clearHistory(StoredHandler stored) { return _core->steps().clearHistory(std::move(stored)); }

StepAnswer FriendList::apply(std::span<const Edit> edits, StoredHandler stored) {
  return _core->steps().apply(edits, std::move(stored));
}

StepAnswer FriendList::apply(const Edit& edit, StoredHandler stored) {
  return apply(std::span(&edit, 1), std::move(stored));
}

std::optional<ContactPhoto> FriendList::photo(FriendId id) {
  const auto person = _core->personWith(id);
  if (!person) return std::nullopt;
  std::optional<ContactPhoto> photo;
  platformOf(_core->process()).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    const RecordRef record = person->copyABPersonWithAddressBook(&addressBook);
    if (record) photo = record->photo();
  });
  return photo;
}

std::string FriendList::shownNumber(std::string_view destination) {
  const bool isNumber = plMessageDestinationType(destination) == PLMessageDestinationTypePhoneNumber;
  return isNumber ? PLUtility::compressPhoneNumberString(destination) : std::string(destination);
}

FoundFriends FriendList::find(std::string_view text, std::size_t limit) { return _core->search().find(text, limit); }

std::optional<FriendId> FriendList::findSimilar(std::string_view text) { return _core->search().similar(text); }

std::vector<FoundContact> FriendList::findContacts(std::string_view text, std::size_t limit) {
  const Process::Scope scope(_core->process());
  return contactSearch().find(text, limit);
}

FavoritesImport FriendList::importFavorites() {
  const PLFavoritesImport done = _core->manager().importFavorites();
  return {done.couldRead, _core->idsOf(done.added), done.withoutRoom};
}

bool FriendList::refresh() { return _core->manager().refreshAgainstAddressBook(); }

std::optional<std::string> FriendList::service() const { return _core->manager().serviceName(); }

void FriendList::setService(std::optional<std::string> name) { _core->setService(std::move(name)); }

bool FriendList::checksReachability() { return pellor::checksReachability(_core->manager()); }

Reachability FriendList::reachability(FriendId id) {
  const auto person = _core->personWith(id);
  return person ? reachabilityOf(_core->manager(), person) : Reachability();
}

std::shared_ptr<Observation> FriendList::query(std::span<const FriendId> friends, std::function<void()> answered) {
  std::set<std::string> destinations;
  std::vector<std::shared_ptr<PLPerson>> persons;
  for (const FriendId id : friends) {
    if (auto person = _core->personWith(id)) persons.push_back(std::move(person));
  }
  for (const auto& person : persons) {
    if (const auto values = person->allValues()) destinations.insert(values->begin(), values->end());
  }
  auto wait = whenAnswered(std::move(destinations), std::move(answered));
  for (const auto& person : persons) _core->manager().statusForPersonRequery(person, true);
  return wait;
}

std::shared_ptr<Observation> FriendList::queryAll(std::function<void()> answered) {
  std::set<std::string> destinations;
  for (const auto& person : snapshot().friends())
    destinations.insert(person->destinations.begin(), person->destinations.end());
  auto wait = whenAnswered(std::move(destinations), std::move(answered));
  _core->manager().refreshDestinationStatuses();
  return wait;
}

}  // namespace pellor
