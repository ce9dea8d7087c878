#include "pellor/list/internal/StepMatching.h"

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "pellor/friends/internal/PLMergeFields.h"
#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/list/internal/StepPageMatching.h"

namespace pellor {
namespace {

using FriendRef = std::shared_ptr<const Friend>;

/// A friend of now.
struct Candidate {
  FriendRef person;
  FriendIdentity identity;
  bool isTaken = false;
  bool wasAdded = false;  // by the step
};

/// The friends of now who share a GUID, a name or a destination with a friend of the step.
class Candidates {
 public:
  using Numbers = std::vector<std::size_t>;  // in slot order

  /// Makes room for what is looked for, before `look`.
  void want(const FriendIdentity& identity) {
    if (!identity.guid.empty()) _byGUID[identity.guid];
    if (!identity.name.empty() || identity.destinations.empty()) _byName[identity.name];
    for (const std::string& destination : identity.destinations) _byDestination[destination];
  }
  void look(const Snapshot& now) {
    for (std::size_t index = 0; index < now.pageCount(); ++index)
      for (const FriendRef& person : now.page(index).friends)
        if (person) enter(person);
  }

  Candidate& operator[](std::size_t number) { return _all[number]; }
  Candidate* with(FriendId id) {
    const auto found = _byId.find(id.number);
    return found == _byId.end() ? nullptr : &_all[found->second];
  }
  const Numbers& withGUID(const std::string& guid) const { return find(_byGUID, guid); }
  const Numbers& withName(const std::string& name) const { return find(_byName, name); }
  const Numbers& withDestination(const std::string& destination) const { return find(_byDestination, destination); }

 private:
  using NumbersByKey = std::unordered_map<std::string, Numbers>;

  const Numbers& find(const NumbersByKey& numbers, const std::string& key) const {
    const auto found = numbers.find(key);
    return found == numbers.end() ? _none : found->second;
  }
  void enter(const FriendRef& person) {
    const std::size_t number = _all.size();
    bool isWanted = false;
    const auto enterIn = [&](NumbersByKey& numbers, const std::string& key) {
      const auto found = numbers.find(key);
      if (found == numbers.end()) return;
      found->second.push_back(number);
      isWanted = true;
    };
    if (person->contactGUID) enterIn(_byGUID, *person->contactGUID);
    enterIn(_byName, person->name);
    for (const std::string& destination : person->destinations) enterIn(_byDestination, destination);
    if (!isWanted) return;
    _byId.emplace(person->id.number, number);
    _all.push_back({person, identityOf(*person)});
  }

  std::vector<Candidate> _all;  // in slot order
  std::unordered_map<std::uint64_t, std::size_t> _byId;
  NumbersByKey _byGUID;
  NumbersByKey _byName;
  NumbersByKey _byDestination;
  const Numbers _none = {};
};

class FriendFinder {
 public:
  FriendFinder(const StepRecord& step, const StepPages& stepPages, const std::vector<std::optional<PageId>>& pages,
               const ListDraft& now, const FormOfFriend& formNow)
      : _step(step), _stepPages(stepPages), _pages(pages), _now(now), _formNow(formNow) {}

  std::vector<std::optional<FriendId>> find() {
    _matches.resize(_step.friends.size());
    findByIds();
    for (std::size_t number = 0; number < _step.friends.size(); ++number) {
      if (_matches[number]) continue;
      const FriendRecord& person = _step.friends[number];
      (person.to ? _missing : _removed)
          .push_back({&person, number, identityOf(person.to ? person.after : person.before)});
    }
    if (_missing.empty() && _removed.empty()) return std::move(_matches);
    for (const Wanted& wanted : _missing) _candidates.want(wanted.identity);
    for (const Wanted& wanted : _removed) _candidates.want(wanted.identity);
    _candidates.look(_now.before());
    takeMatches();
    for (const auto fits : {&FriendFinder::haveSameGUID, &FriendFinder::areEqual, &FriendFinder::haveSameName,
                            &FriendFinder::haveSameDestinations})
      findBy(fits);
    findAddedAnew();
    return std::move(_matches);
  }

 private:
  struct Wanted {
    const FriendRecord* person;
    std::size_t number;
    FriendIdentity identity;
  };
  using Fits = bool (FriendFinder::*)(const Wanted&, const Candidate&) const;

  void findByIds() {
    for (std::size_t number = 0; number < _step.friends.size(); ++number) {
      const FriendId id = _step.friends[number].id;
      if (id.number != 0 && _now.placeOf(id)) _matches[number] = id;
    }
  }

  void takeMatches() {
    for (std::size_t number = 0; number < _step.friends.size(); ++number)
      if (Candidate* candidate = _matches[number] ? _candidates.with(*_matches[number]) : nullptr)
        take(number, *candidate);
  }

  void take(std::size_t number, Candidate& candidate) {
    _matches[number] = candidate.person->id;
    candidate.isTaken = true;
    candidate.wasAdded = !_step.friends[number].from;
  }

  // First those in their places: of friends that are alike each stays the one that it is.
  void findBy(Fits fits) {
    for (const Wanted& wanted : _missing) {
      Candidate* candidate = candidateAtPlace(wanted);
      if (candidate && isFree(wanted, *candidate) && (this->*fits)(wanted, *candidate)) take(wanted.number, *candidate);
    }
    for (const Wanted& wanted : _missing) {
      if (_matches[wanted.number]) continue;
      for (const std::size_t number : candidatesOf(wanted.identity, fits)) {
        Candidate& candidate = _candidates[number];
        if (!isFree(wanted, candidate) || !(this->*fits)(wanted, candidate)) continue;
        take(wanted.number, candidate);
        break;
      }
    }
  }

  // A friend who is met anew gets a higher id: one with a lower id was another friend already when the step was made.
  bool isFree(const Wanted& wanted, const Candidate& candidate) const {
    return !_matches[wanted.number] && !candidate.isTaken && candidate.person->id > wanted.person->id;
  }

  const Candidates::Numbers& candidatesOf(const FriendIdentity& identity, Fits fits) const {
    if (fits == &FriendFinder::haveSameGUID) return _candidates.withGUID(identity.guid);
    if (fits == &FriendFinder::haveSameName || identity.destinations.empty())
      return _candidates.withName(identity.name);
    return _candidates.withDestination(identity.destinations.front());
  }

  Candidate* candidateAtPlace(const Wanted& wanted) {
    const auto place = placeNow(*wanted.person);
    return place ? _candidates.with(_now.at(*place)) : nullptr;
  }

  // Where the step left the friend.
  std::optional<Place> placeNow(const FriendRecord& person) const {
    const auto number = _stepPages.after(person.to->page);
    const auto index = number && _pages[*number] ? _now.indexOf(*_pages[*number]) : std::nullopt;
    return index ? std::optional(Place{*index, person.to->slot}) : std::nullopt;
  }

  bool haveSameGUID(const Wanted& wanted, const Candidate& candidate) const {
    return !wanted.identity.guid.empty() && wanted.identity.guid == candidate.identity.guid;
  }
  bool areEqual(const Wanted& wanted, const Candidate& candidate) const {
    return haveSameBlock(wanted.person->after, _formNow(candidate.person->id));
  }
  bool haveSameName(const Wanted& wanted, const Candidate& candidate) const {
    return !wanted.identity.name.empty() && wanted.identity.name == candidate.identity.name &&
           haveCommonDestination(wanted.identity, candidate.identity);
  }
  // Two contacts of one line are two friends.
  bool haveSameDestinations(const Wanted& wanted, const Candidate& candidate) const {
    const FriendIdentity& one = wanted.identity;
    const FriendIdentity& other = candidate.identity;
    const bool areTwoContacts = !one.guid.empty() && !other.guid.empty();
    return !areTwoContacts && !one.destinations.empty() && one.destinations == other.destinations;
  }

  // Somebody who was alike and stayed in the list all the same was not added anew.
  void findAddedAnew() {
    for (const Wanted& wanted : _removed) {
      const std::vector<Candidate*> alike = addedAlike(wanted.identity);
      const auto isKnown = [&](const Candidate* candidate) {
        return _addedAnew.contains(candidate->person->id.number);
      };
      const std::uint64_t known =
          wanted.person->lookalikes + static_cast<std::uint64_t>(std::ranges::count_if(alike, isKnown));
      if (alike.size() <= known) continue;
      const auto newest = std::ranges::max_element(
          alike, {}, [](const Candidate* candidate) { return std::pair(!candidate->isTaken, candidate->person->id); });
      if ((*newest)->isTaken) continue;
      take(wanted.number, **newest);
      _addedAnew.insert((*newest)->person->id.number);
    }
  }

  std::vector<Candidate*> addedAlike(const FriendIdentity& identity) {
    std::set<std::size_t> numbers;
    const auto add = [&](const Candidates::Numbers& more) { numbers.insert(more.begin(), more.end()); };
    if (!identity.guid.empty()) add(_candidates.withGUID(identity.guid));
    if (identity.destinations.empty()) add(_candidates.withName(identity.name));
    for (const std::string& destination : identity.destinations) add(_candidates.withDestination(destination));
    std::vector<Candidate*> alike;
    for (const std::size_t number : numbers) {
      Candidate& candidate = _candidates[number];
      if (!candidate.wasAdded && areAddedAlike(identity, candidate.identity)) alike.push_back(&candidate);
    }
    return alike;
  }

  const StepRecord& _step;
  const StepPages& _stepPages;
  const std::vector<std::optional<PageId>>& _pages;
  const ListDraft& _now;
  const FormOfFriend& _formNow;
  std::vector<std::optional<FriendId>> _matches;
  std::vector<Wanted> _missing;  // of the friends whom the step left in the list
  std::vector<Wanted> _removed;
  Candidates _candidates;
  std::unordered_set<std::uint64_t> _addedAnew;  // ids
};

}  // namespace

StepMatching::StepMatching(const StepRecord& step, const StepPages& pages, const ListDraft& now,
                           const FormOfFriend& formNow)
    : _pages(pagesOfStep(step, now)), _friends(FriendFinder(step, pages, _pages, now, formNow).find()) {}

}  // namespace pellor
