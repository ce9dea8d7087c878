// Friends who are forgotten, and a history that is cleared.
#include <algorithm>
#include <utility>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/list/internal/ForgottenInCopies.h"
#include "pellor/list/internal/ListSteps.h"
#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

ForgetAnswer refused(RefusalReason reason) { return {.refusal = Refusal{reason}}; }

template <class Texts>
std::vector<std::string> listed(const Texts& texts) {
  return {texts.begin(), texts.end()};
}

// What the app's handler holds ends where it is called, whichever queue of the platform drops it last.
std::shared_ptr<ForgottenHandler> endingOnMainQueue(Process& process, ForgottenHandler handler) {
  const auto end = [&process](ForgottenHandler* held) {
    auto owned = std::make_shared<std::unique_ptr<ForgottenHandler>>(held);
    if (process.mainQueue().isCurrent()) return;
    process.mainQueue().async([owned] { owned->reset(); });
  };
  return {new ForgottenHandler(std::move(handler)), end};
}

}  // namespace

ForgetAnswer ListSteps::forget(FriendId id, ForgottenHandler forgotten) {
  if (const auto refusal = refusalOfStore()) return {.refusal = refusal};
  const Dictionary form = formOf(id);
  if (form.empty()) return refused(RefusalReason::notFound);
  return forget(std::vector{identityOf(form)}, std::move(forgotten));
}

ForgetAnswer ListSteps::forget(const std::string& who, ForgottenHandler forgotten) {
  if (const auto refusal = refusalOfStore()) return {.refusal = refusal};
  return forget(identitiesOf(who), std::move(forgotten));
}

ForgetAnswer ListSteps::planForget(FriendId id) {
  if (const auto refusal = refusalOfStore()) return {.refusal = refusal};
  const Dictionary form = formOf(id);
  return form.empty() ? refused(RefusalReason::notFound) : planForget(std::vector{identityOf(form)});
}

ForgetAnswer ListSteps::planForget(const std::string& who) {
  if (const auto refusal = refusalOfStore()) return {.refusal = refusal};
  return planForget(identitiesOf(who));
}

// All who are known by it; where there is nobody, what somebody would be known by.
std::vector<FriendIdentity> ListSteps::identitiesOf(const std::string& who) {
  std::string room;
  const auto sanitized = plSanitizedDestination(who, room);
  const std::string canonical(sanitized.value_or(who));
  std::vector<FriendIdentity> known;
  const auto look = [&](const FriendIdentity& identity) {
    const bool hasIt = std::ranges::binary_search(identity.destinations, canonical);
    if (hasIt || (!who.empty() && identity.guid == who)) known.push_back(identity);
  };
  const Snapshot& now = _feed.noteRest();
  for (const auto& person : now.friends()) look(identityOf(*person));
  for (const Dictionary& form : _removed.forms()) look(identityOf(form));
  for (const StepRecord& step : _history.records()) {
    for (const FriendRecord& person : step.friends) {
      look(identityOf(person.before));
      look(identityOf(person.after));
    }
  }
  if (!known.empty()) return known;
  const bool isDestination = plMessageDestinationType(canonical) != PLMessageDestinationTypeUnknown;
  return {isDestination ? FriendIdentity{{}, {}, {canonical}} : FriendIdentity{who, {}, {}}};
}

// Who is in the list and has one of the identities leaves; of the others it is known who is another one.
ForgottenPerson ListSteps::personKnownBy(const std::vector<FriendIdentity>& known) {
  ForgottenPerson person([this, known](const FriendIdentity& identity) { return isOfAnother(identity, known); });
  for (const FriendIdentity& identity : known) person.add(identity);
  person.learn(_history.records());
  return person;
}

ForgetAnswer ListSteps::answerAbout(const ForgottenPerson& person) {
  return {.guids = listed(person.guids()),
          .destinations = listed(person.destinations()),
          .names = listed(person.names()),
          .friends = friendsWhoAre(person, _feed.noteRest()),
          .isInHistory = _history.tellsOf(person) || isRemembered(person)};
}

ForgetAnswer ListSteps::forget(const std::vector<FriendIdentity>& known, ForgottenHandler forgotten) {
  ForgottenPerson person = personKnownBy(known);
  ForgetAnswer answer = answerAbout(person);
  if (!answer.friends.empty() || answer.isInHistory) {
    commitForgetting(answer.friends, std::move(person), std::move(forgotten));
    return answer;
  }
  if (!platformOf(_process).personalTraces) return refused(RefusalReason::notFound);
  eraseTraces(person, [forgotten = std::move(forgotten)](Forgotten done) {
    if (done.erased.empty() && done.kept.empty()) done.refusal = Refusal{RefusalReason::notFound};
    if (forgotten) forgotten(done);
  });
  return answer;
}

ForgetAnswer ListSteps::planForget(const std::vector<FriendIdentity>& known) {
  const ForgottenPerson person = personKnownBy(known);
  ForgetAnswer answer = answerAbout(person);
  if (const auto& traces = platformOf(_process).personalTraces) {
    ForgottenInCopies traits(_manager->domain(), person, _feed.noteRest());
    answer.found = traces->find(traits);
    answer.guids = listed(traits.guids());
    answer.destinations = listed(traits.destinations());
    answer.names = listed(traits.names());
  }
  if (answer.friends.empty() && !answer.isInHistory && answer.found.empty()) answer.refusal = {RefusalReason::notFound};
  return answer;
}

void ListSteps::eraseTraces(const ForgottenPerson& person, ForgottenHandler forgotten) {
  const auto& traces = platformOf(_process).personalTraces;
  if (!traces) {
    if (forgotten) forgotten({});
    return;
  }
  traces->erase(std::make_shared<ForgottenInCopies>(_manager->domain(), person, _feed.noteRest()),
                [held = endingOnMainQueue(_process, std::move(forgotten))](const PersonalTraces::Erasure& erasure) {
                  if (*held) (*held)({{}, erasure.found, erasure.kept});
                });
}

std::vector<FriendId> ListSteps::friendsWhoAre(const ForgottenPerson& person, const Snapshot& list) {
  std::vector<FriendId> ids;
  for (const auto& each : list.friends())
    if (person.isTheirs(identityOf(*each))) ids.push_back(each->id);
  return ids;
}

bool ListSteps::isOfAnother(const FriendIdentity& identity, const std::vector<FriendIdentity>& known) const {
  const auto isKnown = [&](const FriendIdentity& other) {
    return std::ranges::any_of(known, [&](const FriendIdentity& each) { return areAddedAlike(each, other); });
  };
  std::vector<std::string> identifiers = identity.destinations;
  if (!identity.guid.empty()) identifiers.push_back(identity.guid);
  for (const std::string& identifier : identifiers) {
    for (const auto& person : _manager->friendsWithIdentifier(identifier)) {
      const FriendIdentity other = identityOf(person->dictionaryRepresentation());
      if (areAddedAlike(other, identity) && !isKnown(other)) return true;
    }
  }
  return false;
}

bool ListSteps::isRemembered(const ForgottenPerson& person) {
  return _exceptions.tellsOf(person) ||
         std::ranges::any_of(_removed.forms(), [&](const Dictionary& form) { return person.isTheirs(form); });
}

// The step of the removal tells that somebody left, and not who.
void ListSteps::commitForgetting(const std::vector<FriendId>& leaving, ForgottenPerson person,
                                 ForgottenHandler forgotten) {
  std::vector<Edit> edits;
  for (const FriendId id : leaving) edits.emplace_back(RemoveFriend{id});
  Planned planned = this->planned(edits);
  StepRecord record;
  record.kind = StepKind::removed;
  record.isComplete = false;
  record.summary.removed = edits.size();
  sign(record);
  const auto edit = [&] {
    if (!edits.empty()) {
      perform(planned.step);
      _feed.note(ChangeOrigin::thisProgram, &planned.step.draft);
    }
    _history.forget(person);
    _exceptions.forget(person);
    _removed.forget([&](const Dictionary& form) { return person.isTheirs(form); });
    if (!edits.empty()) _history.append(record);
  };
  Unstored unstored;
  unstored.number = _manager->editor().performStep(edit);
  unstored.entry = record.id;
  unstored.record = std::move(record);
  unstored.before = planned.step.draft.before();
  unstored.edits = std::move(planned.edits);
  unstored.stored = [forgotten](const std::optional<Refusal>& refusal) {
    if (forgotten) forgotten({.refusal = refusal});
  };
  unstored.forgotten = std::move(person);
  unstored.tellForgotten = std::move(forgotten);
  _unstored.push_back(std::move(unstored));
  _keep(true);
}

// Another process may have told of the person until it took the step over, and a step that was rejected may have
// brought the person back. Else who is in the list was added again.
bool ListSteps::forgetAgain(Unstored& step) {
  ForgottenPerson& person = *step.forgotten;
  person.learn(_history.records());
  const auto back = friendsWhoAre(person, _feed.noteRest());
  if (!back.empty() && !step.followsRejected) return false;
  if (back.empty() && !isRemembered(person) && !_history.tellsOf(person)) return false;
  commitForgetting(back, ForgottenPerson(person), std::move(step.tellForgotten));
  return true;
}

StepAnswer ListSteps::clearHistory(StoredHandler stored) {
  if (const auto refusal = refusalOfStore()) return {.refusal = refusal};
  const Snapshot now = _feed.noteRest();
  Unstored unstored;
  unstored.number = _manager->editor().performStep([this] { _history.clear(); });
  unstored.before = now;
  unstored.stored = std::move(stored);
  _unstored.push_back(std::move(unstored));
  _keep(true);
  return {};
}

}  // namespace pellor
