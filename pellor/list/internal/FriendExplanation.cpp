#include "pellor/list/internal/FriendExplanation.h"

#include <algorithm>
#include <ranges>
#include <string_view>
#include <utility>

#include "pellor/friends/PLDestination.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/list/ShownDestination.h"
#include "pellor/list/internal/FriendIdentity.h"
#include "pellor/platform/Platform.h"
#include "pellor/runtime/Process.h"

namespace pellor {
namespace {

/// A friend, followed back through the steps: what it was known by before is known after its step.
class FollowedBack {
 public:
  FollowedBack(FriendId id, const Dictionary& form) : _id(id) { know(form); }

  /// Null where the step does not tell of the friend.
  const FriendRecord* in(const StepRecord& step) {
    const auto found = std::ranges::find_if(step.friends, [this](const FriendRecord& person) { return isIts(person); });
    if (found == step.friends.end()) return nullptr;
    know(found->before);
    know(found->after);
    return &*found;
  }

 private:
  void know(const Dictionary& form) {
    if (!form.empty()) _known.push_back(identityOf(form));
  }
  bool isKnown(const Dictionary& form) const {
    return !form.empty() && std::ranges::any_of(_known, [other = identityOf(form)](const FriendIdentity& identity) {
      return areAddedAlike(identity, other);
    });
  }
  bool isIts(const FriendRecord& person) const {
    if (person.id.number != 0) return person.id == _id;
    return isKnown(person.after) || isKnown(person.before);
  }

  const FriendId _id;
  std::vector<FriendIdentity> _known;
};

std::string guidOf(const Dictionary& form) { return identityOf(form).guid; }

bool holdsFor(const PLException& exception, const PLCardIdentity& person) {
  switch (exception.kind) {
    case PLDecisionKind::relinked:
      return exception.person == person;
    case PLDecisionKind::cleanedUp:
      return person.destinations.empty() && exception.person.guid == person.guid &&
             (!person.guid.empty() || exception.person.name == person.name);
    default:
      return !person.guid.empty() && exception.person.guid == person.guid;
  }
}

FriendException shown(const PLException& exception) {
  switch (exception.kind) {
    case PLDecisionKind::relinked:
      return {StepKind::relinked, exception.id, exception.record.guid};
    case PLDecisionKind::unlinked:
      return {StepKind::unlinked, exception.id, exception.person.guid};
    case PLDecisionKind::deduplicated:
      return {StepKind::deduplicated, exception.id, exception.person.guid};
    case PLDecisionKind::cleanedUp:
      return {StepKind::cleanedUp, exception.id, {}};
  }
  return {};
}

NumberReason reasonFor(const Explanation& explanation) {
  if (explanation.number.empty()) return NumberReason::none;
  const auto chosen = explanation.chosenNumber ? plMessageCanonicalRawAddress(*explanation.chosenNumber) : std::nullopt;
  if (chosen == explanation.number) return NumberReason::chosen;
  return explanation.isContactThere ? NumberReason::card : NumberReason::first;
}

}  // namespace

void explainByHistory(Explanation& explanation, const Dictionary& form,
                      const std::vector<DecodedHistory::Entry>& entries, const std::vector<PLException>& exceptions) {
  explanation.contactGUID = guidOf(form);
  FollowedBack person(explanation.id, form);
  for (const auto& entry : entries | std::views::reverse) {
    const FriendRecord* const undone = entry->undone ? person.in(*entry->undone) : nullptr;
    const FriendRecord* const made = person.in(entry->step);
    if (!made && !undone) continue;
    explanation.steps.push_back(ListHistory::summaryOf(*entry));
    const FriendRecord* const last = entry->undone ? undone : made;
    const bool isLink = last && guidOf(last->before) != guidOf(last->after);
    if (explanation.linkedSince.empty() && isLink && guidOf(last->after) == explanation.contactGUID)
      explanation.linkedSince = entry->step.id;
  }
  for (const PLException& exception : exceptions)
    if (holdsFor(exception, cardIdentityOf(form))) explanation.exceptions.push_back(shown(exception));
}

void explainByContacts(Explanation& explanation, const PLPerson& person) {
  platformOf(Process::current()).addressBook->performWithAddressBook([&](AddressBook& addressBook) {
    explanation.isContactThere = person.copyABPersonWithAddressBook(&addressBook) != nullptr;
  });
  explanation.number = destinationShownOf(person).value_or(std::string());
  explanation.chosenNumber = person.preferredDestination();
  explanation.numberReason = reasonFor(explanation);
}

}  // namespace pellor
