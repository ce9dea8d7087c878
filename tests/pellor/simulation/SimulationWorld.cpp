#include "tests/pellor/simulation/SimulationWorld.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

#include "pellor/friends/internal/PLSkipChecks.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"
#include "tests/pellor/SlowStore.h"

namespace pellor {
namespace {

constexpr std::size_t ProcessCount = 3;
constexpr std::uint64_t AddressCount = 8;
constexpr double SettleLimit = 1000;

FriendName address(std::uint64_t number) { return "p" + std::to_string(number) + "@example.org"; }

const std::vector<std::string> versionedKeys{std::string(PLFriendListKey), std::string(PLGroupTitlesKey)};

}  // namespace

// --- Member --------------------------------------------------------------------------------------------------------

// Notes which version its process knows. What is read during a write is not taken over before the write has ended.
class Member::Store : public SlowStore {
 public:
  Store(std::shared_ptr<PreferencesStore> store, const Interruption& interruption)
      : SlowStore(std::move(store), interruption, interruption) {}

  PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) override {
    auto answer = SlowStore::read(keys, domain);
    if (answer.isReadable() && !isWriting && domain == TapnoteDomain) note(*answer.value());
    return answer;
  }
  PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id,
                              std::string_view domain) override {
    isWriting = true;
    auto answer = SlowStore::write(changes, id, domain);
    isWriting = false;
    if (domain == TapnoteDomain) note(answer.written);
    return answer;
  }

  StoredVersions known;
  bool isWriting = false;

 private:
  void note(const VersionedPreferences& found) {
    if (const auto list = found.find(PLFriendListKey); list != found.end()) known.list = list->second.version.count;
    if (const auto titles = found.find(PLGroupTitlesKey); titles != found.end()) {
      known.titles = titles->second.version.count;
    }
  }
};

Member::Member(SimulatedWorld& world, const std::shared_ptr<Scheduler>& scheduler, std::uint64_t number,
               const std::function<void()>& interrupt)
    : _number(number), _process(std::make_unique<Process>(scheduler, _log)) {
  const Process::Scope scope(*_process);
  _process->local<PLSkipChecks>().switchOn();
  Platform platform = world.makePlatform(*_process);
  _store = std::make_shared<Store>(platform.preferences, [this, interrupt](std::string_view) {
    if (!_process->mainQueue().isCurrent()) interrupt();
  });
  platform.preferences = _store;
  installPlatform(*_process, platform);
  _manager = PLFriendsManager::managerForDomain(std::string(TapnoteDomain));
  _manager->setServiceName("Service");
  _observation = _process->notificationCenter().addObserver(
      std::string(PLFriendsManagerDestinationStatusUpdatedNotification), [this](const Notification& notification) {
        const auto& info = *notification.userInfoAs<Dictionary>();
        const Value* told = valueForKey(info, PLFriendsManagerDestinationStatusUpdatedDestinationsKey);
        for (const auto& [destination, status] : *told->dictionary()) {
          statuses[destination] = static_cast<DestinationStatus>(*status.integer());
        }
      });
}

Member::~Member() { _manager.reset(); }

StoredVersions Member::known() const { return _store->known; }

StoredVersions Member::stored() {
  const StoredVersions known = std::exchange(_store->known, {});
  _store->read(versionedKeys, TapnoteDomain);
  return std::exchange(_store->known, known);
}

std::size_t Member::takeDeduplications() {
  const std::size_t count = _log->count("deduplicating friend");
  _log->clear();
  return count;
}

void Member::kill() {
  _manager.reset();
  _process->abandon();
}

// --- The world -----------------------------------------------------------------------------------------------------

SimulationWorld::SimulationWorld(std::uint64_t seed, Sizes sizes)
    : _random(seed),
      _scheduler(std::make_shared<SimulatedScheduler>(seed, SimulatedScheduler::DefaultStepLimit, anyStart())),
      _hasScript(chance(2)),
      _sizes(sizes) {
  auto& preferences = _world.preferences();
  _round.hasPagesOfSeveralSizes = sizes == Sizes::several;
  _round.maxGroupCount = sizes == Sizes::several ? 8 * AddressCount : 2 + below(4);
  preferences.setValue(PLGroupSizeKey, 1 + below(3), std::string(TapnoteDomain));
  preferences.setValue(PLMaxGroupCountKey, _round.maxGroupCount, std::string(TapnoteDomain));
  _world.pairedDevice().setCompletedInitialSync(true);
  _world.bus().setCoalescesPostsOfOthers(chance(2));
  for (std::uint64_t number = 0; number < AddressCount; ++number) addContact(address(number));
  if (chance(2)) addFavorites();
  if (_hasScript) _world.identityService().setScript([this](const auto& query) { return answer(query); });
  while (_members.size() < ProcessCount) _members.push_back(newMember());
}

// From thirty years before the usual time to a hundred after it.
double SimulationWorld::anyStart() {
  constexpr double Year = 365.25 * 86'400;
  const double years = chance(2) ? 0 : static_cast<double>(below(131)) - 30;
  return SimulatedScheduler::StartTime + years * Year;
}

std::unique_ptr<Member> SimulationWorld::newMember() {
  if (_sizes == Sizes::several) _world.preferences().setValue(PLGroupSizeKey, 1 + below(4), std::string(TapnoteDomain));
  return std::make_unique<Member>(_world, _scheduler, ++_lastMember, [this] { interrupt(); });
}

DestinationStatus SimulationWorld::statusOf(const std::string& destination) {
  return static_cast<DestinationStatus>(std::accumulate(destination.begin(), destination.end(), 0) % 4 - 1);
}

// In up to two parts, of which the second may come after the asker gave up.
std::vector<SimulatedIdentityService::AnswerPart> SimulationWorld::answer(
    const SimulatedIdentityService::Query& query) {
  std::vector<SimulatedIdentityService::AnswerPart> parts(2);
  for (auto& part : parts) part.delay = static_cast<double>(below(40));
  for (const std::string& destination : query.destinations) {
    const auto status = statusOf(*plMessageCanonicalRawAddress(destination));
    if (status != DestinationStatus::unspecified) parts[below(2)].statuses.emplace(destination, status);
  }
  return parts;
}

// --- Time ---

void SimulationWorld::checkInvariants() {
  for (const auto& member : _members) {
    const Process::Scope scope(member->process());
    if (const auto violation = member->manager().invariantViolation()) ADD_FAILURE() << *violation;
  }
}

bool SimulationWorld::step() {
  const bool hasRun = _scheduler->step();
  checkInvariants();
  return hasRun;
}

void SimulationWorld::run(std::uint64_t steps) {
  while (steps-- > 0) step();
}

void SimulationWorld::rest() {
  for (const auto& member : _members) {
    const Process::Scope scope(member->process());
    member->manager().setRefreshAgainstContactsEnabled(true);
  }
  while (step()) {
  }
}

void SimulationWorld::interrupt() {
  for (auto left = below(4); left > 0; --left) _scheduler->step();
}

// --- Contacts ---

FriendName SimulationWorld::anyAddress() { return address(below(AddressCount)); }

void SimulationWorld::addContact(const FriendName& address, const std::optional<std::string>& name) {
  TestContact contact;
  contact.guid = "guid-" + std::to_string(++_lastContact);
  contact.first = name.value_or("Name" + std::to_string(_lastContact));
  contact.emails = {{"home", address}};
  if (chance(2)) contact.phones = {{"mobile", "0151 234567" + address.substr(1, 1)}};
  _contacts[address] = _world.addressBook().add(contact);
}

void SimulationWorld::addFavorites() {
  std::vector<FavoriteEntry> entries;
  for (const auto& [address, guid] : _contacts) {
    if (chance(2)) entries.push_back({"?", address, _world.addressBook().contact(guid)->recordID});
  }
  _world.favorites().setEntries(entries);
}

void SimulationWorld::changeContacts() {
  for (auto left = 1 + below(3); left > 0; --left) {
    const FriendName address = anyAddress();
    const auto contact = _contacts.find(address);
    _changed.insert(address);
    if (contact == _contacts.end()) {
      _round.relinked.insert(address);
      addContact(address);
    } else if (chance(3)) {
      replaceContact(address);
    } else if (chance(4)) {
      _world.addressBook().rebuild();
    } else {
      _round.relinked.insert(address);
      const std::string name = "Name" + std::to_string(++_lastContact);
      _world.addressBook().change(contact->second, [&](TestContact& changed) { changed.first = name; });
    }
    run(below(10));
  }
}

// Who has another record with the same name, or none, is the same friend for everybody.
void SimulationWorld::replaceContact(const FriendName& address) {
  const auto contact = _contacts.find(address);
  const auto name = _world.addressBook().contact(contact->second)->first;
  _world.addressBook().remove(contact->second);
  _contacts.erase(contact);
  if (chance(3)) return;
  const bool keepsName = !chance(4);
  if (!keepsName) _round.relinked.insert(address);
  addContact(address, keepsName ? name : std::nullopt);
}

// They are the same when they come back. Whoever got another contact meanwhile keeps that one.
void SimulationWorld::loseContacts() {
  for (auto contact = _contacts.begin(); contact != _contacts.end();) {
    if (chance(2)) {
      ++contact;
      continue;
    }
    TestContact lost = *_world.addressBook().contact(contact->second);
    lost.recordID = InvalidRecordID;
    _lostContacts[contact->first] = std::move(lost);
    _world.addressBook().remove(contact->second);
    contact = _contacts.erase(contact);
  }
}

void SimulationWorld::bringContactsBack() {
  for (const auto& [address, contact] : _lostContacts) {
    if (!_contacts.contains(address)) _contacts[address] = _world.addressBook().add(contact);
  }
  _lostContacts.clear();
}

void SimulationWorld::setContactsReadable(bool areReadable) {
  _areContactsReadable = areReadable;
  _world.addressBook().setReadable(areReadable);
}

// --- Faults ---

void SimulationWorld::killSomeone() {
  const auto member = _members.begin() + static_cast<std::ptrdiff_t>(below(_members.size()));
  _round.hasTakenOneOfTwo = (*member)->takeDeduplications() > 0 || _round.hasTakenOneOfTwo;
  const std::unique_ptr<Member> killed = std::move(*member);
  _members.erase(member);
  killed->kill();
  _members.push_back(newMember());
}

// --- Rounds ---

void SimulationWorld::editAsLaterVersion() {
  const auto stored = _world.preferences().value(PLFriendListKey, TapnoteDomain);
  if (!stored || !stored->array() || stored->array()->empty()) return;
  Array list = *stored->array();
  Value& slot = list[below(list.size())];
  Dictionary form = *slot.dictionary();
  if (form.empty()) return;
  form.insert_or_assign(LaterKey, "later" + std::to_string(++_lastLater));
  slot = form;
  _world.preferences().setValue(PLFriendListKey, list, std::string(TapnoteDomain));
  _world.bus().post(PLFriendsChangedExternallyNotification);
  rest();
}

void SimulationWorld::beginRound(bool isDisturbed) {
  _round.before = plainListOf(_members.front()->manager());
  _round.edits.clear();
  _round.hasTakenOneOfTwo = false;
  _round.hasUntoldWrites = false;
  _round.wasStoreReplaced = false;
  _refused.clear();
  for (const auto& member : _members) member->takeDeduplications();
  _isDisturbed = isDisturbed;
}

void SimulationWorld::record(const Member& author, Edit edit) {
  edit.author = author.number();
  edit.known = author.known();
  _round.edits.push_back(std::move(edit));
}

void SimulationWorld::noteAdded(const FriendName& name, bool isNamed) {
  if (_changed.contains(name) || !isNamed) _round.relinked.insert(name);
}

void SimulationWorld::settle(Member& member) {
  const bool isWritten = member.process().settle(SettleLimit);
  checkInvariants();
  const Process::Scope scope(member.process());
  if (isWritten) acknowledge(member);
  for (std::size_t index = 0; !isWritten && index < _round.edits.size(); ++index) {
    const Edit& edit = _round.edits[index];
    const bool mayBeRefused = edit.author == member.number() && edit.kind == Edit::Kind::add && !edit.acknowledged;
    if (mayBeRefused) _refused.insert(index);
  }
}

void SimulationWorld::acknowledge(Member& member) {
  for (std::size_t index = 0; index < _round.edits.size(); ++index) {
    Edit& edit = _round.edits[index];
    if (edit.author != member.number() || edit.acknowledged || _refused.contains(index)) continue;
    edit.acknowledged = member.stored();
    edit.firstLater = _round.edits.size();
  }
}

Round SimulationWorld::endRound() {
  _isDisturbed = false;
  for (const auto& member : _members) {
    // It is false once if an addition found no room, and then true.
    settle(*member);
    const Process::Scope scope(member->process());
    EXPECT_TRUE(member->process().settle(SettleLimit));
    acknowledge(*member);
    _round.hasTakenOneOfTwo = member->takeDeduplications() > 0 || _round.hasTakenOneOfTwo;
  }
  // What the last of them wrote the others have to hear of.
  rest();
  _round.after = plainListOf(_members.front()->manager());
  return _round;
}

void SimulationWorld::restartOne() {
  _members.erase(_members.begin() + static_cast<std::ptrdiff_t>(below(_members.size())));
  _members.push_back(newMember());
  rest();
}

}  // namespace pellor
