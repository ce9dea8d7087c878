#include "cli/ListImport.h"

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_set>
#include <utility>

#include "cli/CommandError.h"
#include "cli/Output.h"
#include "pellor/platform/Platform.h"

namespace pellor::cli {
namespace {

std::string ownName(const PLPerson& person) { return person.hasName() ? person.displayName().value_or("") : ""; }

DestinationSet destinationsOf(const PLPerson& person) {
  const auto values = person.allValues();
  return values ? *values : DestinationSet();
}

std::string placeText(const Place& place) {
  return "page " + std::to_string(place.page + 1) + ", slot " + std::to_string(place.slot + 1);
}

CommandError isTwice(const Place& place, const PLPerson& person, const Place& first) {
  return CommandError(placeText(place) + ": " + nameOf(person) + " is there twice, also on " + placeText(first));
}

// A person without a record keeps a GUID that names none here: its contact may come later.
PersonDictionary withoutRecord(PersonDictionary form) {
  form.insert_or_assign(std::string(PLPersonRecordIDKey), InvalidRecordID);
  return form;
}

bool isLinked(const PLPerson& person) { return person.record().recordID() != InvalidRecordID; }

bool makesPages(Session& session) {
  return session.store()
      .booleanValue(PLEmptyTrailingGroupEnabledKey, managerOf(session).domain())
      .value()
      .value_or(true);
}

}  // namespace

ListImport::ListImport(Session& session, const ListFile& file)
    : _session(session),
      _manager(managerOf(session)),
      _file(file),
      _friends(allPersons(_manager)),
      _before(pagesOf(_manager)),
      _makesPages(makesPages(session)) {
  for (const PersonAt& each : _friends) {
    if (const auto guid = each.person->abRecordGUID().value_or(""); !guid.empty()) _byGuid.emplace(guid, &each);
    for (const std::string& destination : destinationsOf(*each.person)) _byDestination.emplace(destination, &each);
  }
  readComers(file);
  link();
  match();
}

// Two cards of one person may both be friends: they have GUIDs of their own.
void ListImport::readComers(const ListFile& file) {
  std::map<std::string, Place> guids;
  std::map<std::pair<std::string, DestinationSet>, std::vector<const Comer*>> alike;
  std::size_t count = 0;
  for (const ListFilePage& page : file.pages) count += page.slots.size();
  _comers.reserve(count);
  for (std::uint64_t page = 0; page < file.pages.size(); ++page) {
    for (std::uint64_t slot = 0; slot < file.pages[page].slots.size(); ++slot) {
      const auto& form = file.pages[page].slots[slot];
      if (!form) continue;
      const auto person = PLPerson::initWithDictionaryRepresentationAddressBook(withoutRecord(*form), nullptr);
      const Place place{page, slot};
      const std::string guid = person->abRecordGUID().value_or("");
      const auto [known, isNew] = guids.try_emplace(guid, place);
      if (!guid.empty() && !isNew) throw isTwice(place, *person, known->second);
      auto& others = alike[{ownName(*person), destinationsOf(*person)}];
      for (const Comer* other : others) {
        if (guid.empty() || other->guid.empty()) throw isTwice(place, *person, other->place);
      }
      others.push_back(&_comers.emplace_back(Comer{place, guid, person}));
    }
  }
}

// While contacts cannot be read, or most of them are gone, the links stay as the file has them: a refresh follows
// later.
void ListImport::link() {
  _session.withAddressBook([&](AddressBook& addressBook) {
    const bool isHeld = platformOf(_session.process()).addressBook->contactsFall().has_value();
    if (isHeld || !addressBook.isReadable()) return;
    for (const Comer& comer : _comers) comer.person->refreshWithAddressBook(&addressBook);
  });
}

// --- Who is who ---

void ListImport::match() {
  // The next load of the list would pass over it.
  for (Comer& comer : _comers) comer.isUnreachable = comer.person->allValuesCount() == 0;
  for (const Match how : {Match::guid, Match::name, Match::destination}) matchBy(how);
  std::unordered_set<std::string> guids;
  for (Comer& comer : _comers) {
    const std::string guid = comer.person->abRecordGUID().value_or("");
    comer.isTwice = !guid.empty() && !guids.insert(guid).second;
  }
}

void ListImport::matchBy(Match how) {
  for (Comer& comer : _comers) {
    if (comer.known || comer.isUnreachable) continue;
    comer.known = friendFor(comer, how);
    if (comer.known) _taken.insert(comer.known);
  }
}

// The first in slot order that no other one of the file is.
const PersonAt* ListImport::friendFor(const Comer& comer, Match how) const {
  const PersonAt* found = nullptr;
  const auto look = [&](const auto& table, const std::string& key) {
    const auto [first, last] = table.equal_range(key);
    for (auto each = first; each != last; ++each) {
      const PersonAt* known = each->second;
      if ((!found || known->place < found->place) && !_taken.contains(known) && isSame(comer, *known, how))
        found = known;
    }
  };
  if (how != Match::guid) {
    for (const std::string& destination : destinationsOf(*comer.person)) look(_byDestination, destination);
    return found;
  }
  for (const std::string& guid : {comer.person->abRecordGUID().value_or(""), comer.guid}) {
    if (!guid.empty()) look(_byGuid, guid);
  }
  return found;
}

// Families share numbers: another name, or another contact of this machine, is somebody else.
bool ListImport::isSame(const Comer& comer, const PersonAt& known, Match how) const {
  if (how == Match::guid) return true;
  const std::string knownGuid = known.person->abRecordGUID().value_or("");
  if (isLinked(*comer.person) && !knownGuid.empty() && comer.person->abRecordGUID() != knownGuid) return false;
  const std::string name = ownName(*comer.person);
  const std::string knownName = ownName(*known.person);
  return how == Match::name ? name == knownName : name.empty() || knownName.empty();
}

// --- Adding ---

ImportPlan ListImport::addition() {
  ImportPlan plan;
  plan.pages = _before;
  std::vector<const Comer*> others;
  for (const Comer& comer : _comers) {
    if (comer.known) {
      plan.known.push_back(*comer.known);
    } else if (!leaveOut(plan, comer) && !putWhereTheFileHasIt(plan, comer)) {
      others.push_back(&comer);
    }
  }
  for (const Comer* comer : others) {
    if (!putWhereThereIsRoom(plan, *comer)) plan.withoutRoom.push_back(comer->person);
  }
  addTitles(plan);
  return plan;
}

bool ListImport::leaveOut(ImportPlan& plan, const Comer& comer) {
  if (comer.isUnreachable) plan.unreachable.push_back(comer.person);
  if (comer.isTwice && !comer.isUnreachable) plan.repeated.push_back(comer.person);
  return comer.isUnreachable || comer.isTwice;
}

bool ListImport::putWhereTheFileHasIt(ImportPlan& plan, const Comer& comer) const {
  const auto [page, slot] = comer.place;
  if (slot >= _manager.groupSize() || !reach(plan, page) || plan.pages[page].slots[slot]) return false;
  plan.pages[page].slots[slot] = comer.person;
  plan.added.push_back({comer.place, comer.person});
  return true;
}

bool ListImport::putWhereThereIsRoom(ImportPlan& plan, const Comer& comer) const {
  for (std::uint64_t page = 0; reach(plan, page); ++page) {
    auto& slots = plan.pages[page].slots;
    const auto slot = std::ranges::find(slots, EmptySlot);
    if (slot == slots.end()) continue;
    plan.added.push_back({{page, static_cast<std::uint64_t>(slot - slots.begin())}, comer.person});
    *slot = comer.person;
    return true;
  }
  return false;
}

bool ListImport::reach(ImportPlan& plan, std::uint64_t page) const {
  if (page < plan.pages.size()) return true;
  if (!_makesPages || page >= _manager.maxGroupCount()) return false;
  plan.pages.resize(page + 1, {"", std::vector<Slot>(_manager.groupSize(), EmptySlot)});
  return true;
}

// A page that held nobody and has no title gets the one of the file, if it is that page now.
void ListImport::addTitles(ImportPlan& plan) const {
  for (std::uint64_t page = 0; page < _file.pages.size(); ++page) {
    const ListFilePage& there = _file.pages[page];
    if (there.title.empty() || !reach(plan, page)) continue;
    const bool isNew = page >= _before.size() || (_before[page].isEmpty() && _before[page].title.empty());
    const bool isEmptyThere = std::ranges::none_of(there.slots, [](const auto& slot) { return slot.has_value(); });
    if (!isNew || plan.pages[page].isEmpty() != isEmptyThere) continue;
    plan.pages[page].title = there.title;
    plan.titled.push_back(page);
  }
}

// --- Replacing ---

ImportPlan ListImport::replacement() {
  requireFit();
  ImportPlan plan;
  plan.pages.resize(std::max<std::size_t>(_file.pages.size(), 1),
                    {"", std::vector<Slot>(_manager.groupSize(), EmptySlot)});
  for (const Comer& comer : _comers) {
    if (!leaveOut(plan, comer)) putReplacing(plan, comer);
  }
  std::unordered_set<std::shared_ptr<PLPerson>> kept;
  for (const PersonAt& each : plan.known) kept.insert(each.person);
  for (const PersonAt& each : _friends) {
    if (!kept.contains(each.person)) plan.removed.push_back(each);
  }
  for (std::uint64_t page = 0; page < plan.pages.size(); ++page) {
    if (page < _file.pages.size()) plan.pages[page].title = _file.pages[page].title;
    const std::string before = page < _before.size() ? _before[page].title : "";
    if (plan.pages[page].title != before) plan.titled.push_back(page);
  }
  return plan;
}

void ListImport::requireFit() const {
  const std::uint64_t size = _manager.groupSize();
  for (const Comer& comer : _comers) {
    if (comer.place.slot < size) continue;
    throw CommandError(placeText(comer.place) + ": a page of this list has " + std::to_string(size) +
                       " slots (\"pellor settings page-size " + std::to_string(_file.pageSize) +
                       "\" gives it those of the file)");
  }
  const std::uint64_t wanted = _file.pages.size();
  if (wanted > _manager.maxGroupCount()) {
    throw CommandError("the file has " + std::to_string(wanted) + " pages, and this list may have " +
                       std::to_string(_manager.maxGroupCount()) + " (\"pellor settings max-pages " +
                       std::to_string(wanted) + "\" allows them)");
  }
  if (wanted > _before.size() && !_makesPages)
    throw CommandError("this list makes no pages by itself: \"pellor settings trailing-page on\" has it make them");
}

void ListImport::putReplacing(ImportPlan& plan, const Comer& comer) const {
  Slot& slot = plan.pages[comer.place.page].slots[comer.place.slot];
  slot = comer.known ? comer.known->person : comer.person;
  const PersonAt placed{comer.place, slot};
  if (!comer.known) return plan.added.push_back(placed);
  plan.known.push_back(*comer.known);
  if (comer.known->place != comer.place) plan.moved.push_back({placed, comer.known->place});
  PersonDictionary form = formFor(comer);
  if (form != comer.known->person->dictionaryRepresentation())
    plan.updated.push_back({comer.known->person, std::move(form)});
}

// A link that is there stays where the one of the file leads nowhere.
PersonDictionary ListImport::formFor(const Comer& comer) {
  PersonDictionary form = comer.person->dictionaryRepresentation();
  const PersonDictionary present = comer.known->person->dictionaryRepresentation();
  const auto guid = stringForKey(form, PLPersonRecordGUIDKey);
  const auto presentGuid = stringForKey(present, PLPersonRecordGUIDKey);
  const bool takesLink = guid != presentGuid && (isLinked(*comer.person) || !presentGuid);
  if (takesLink) return form;
  for (const std::string_view key : {PLPersonRecordIDKey, PLPersonRecordGUIDKey, PLPersonDatabaseUIDKey}) {
    form.erase(std::string(key));
    if (const Value* value = valueForKey(present, key)) form.emplace(key, *value);
  }
  return form;
}

}  // namespace pellor::cli
