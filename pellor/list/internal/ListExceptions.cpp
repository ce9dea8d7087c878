#include "pellor/list/internal/ListExceptions.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLListEditor.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/list/internal/ForgottenPerson.h"

namespace pellor {
namespace {

const std::string Key(PLFriendListExceptionsKey);

std::optional<PLDecisionKind> decisionOf(StepKind kind) {
  switch (kind) {
    case StepKind::relinked:
      return PLDecisionKind::relinked;
    case StepKind::unlinked:
      return PLDecisionKind::unlinked;
    case StepKind::deduplicated:
      return PLDecisionKind::deduplicated;
    case StepKind::cleanedUp:
      return PLDecisionKind::cleanedUp;
    default:
      return std::nullopt;
  }
}

bool isLink(PLDecisionKind kind) { return kind == PLDecisionKind::relinked || kind == PLDecisionKind::unlinked; }

FriendIdentity identityOf(const PLCardIdentity& card) { return {card.guid, card.name, card.destinations}; }

bool isAbout(const PLException& exception, const ForgottenPerson& person) {
  return person.isTheirs(identityOf(exception.person)) ||
         (exception.kind == PLDecisionKind::relinked && person.isTheirs(identityOf(exception.record)));
}

}  // namespace

std::optional<PLException> exceptionFrom(const StepRecord& step, const StepRecord& undone) {
  const auto kind = decisionOf(step.kind);
  if (!kind) return std::nullopt;
  const auto isTakenBack = [&](const FriendRecord& person) {
    return person.to && (isLink(*kind) ? person.before != person.after : !person.from);
  };
  const auto person = std::ranges::find_if(undone.friends, isTakenBack);
  if (person == undone.friends.end()) return std::nullopt;
  PLException exception{step.id, *kind, cardIdentityOf(person->after), {}};
  if (*kind == PLDecisionKind::relinked) exception.record = cardIdentityOf(person->before);
  return exception;
}

std::vector<PLException> ListExceptions::all() const {
  std::vector<PLException> all;
  for (const Value& element : _manager->editor().attached(Key).elements())
    if (auto exception = exceptionOf(element)) all.push_back(*std::move(exception));
  return all;
}

void ListExceptions::add(const PLException& exception) {
  LongArrayElements elements = elementsFrom(_manager->editor().attached(Key), 0);
  elements.emplace_back(Value(dictionaryOf(exception)));
  _manager->editor().setAttached(Key, arrayOf(std::move(elements)));
}

void ListExceptions::remove(const std::string& step) {
  Array kept = _manager->editor().attached(Key).elements();
  const auto isOfStep = [&](const Value& element) {
    const auto exception = exceptionOf(element);
    return exception && exception->id == step;
  };
  if (std::erase_if(kept, isOfStep) > 0) _manager->editor().setAttached(Key, LongArray(kept));
}

bool ListExceptions::tellsOf(const ForgottenPerson& person) const {
  return std::ranges::any_of(all(), [&](const PLException& exception) { return isAbout(exception, person); });
}

void ListExceptions::forget(const ForgottenPerson& person) {
  if (auto rest = elementsWithout(_manager->editor().attached(Key), person))
    _manager->editor().setAttached(Key, arrayOf(*std::move(rest)));
}

std::optional<LongArrayElements> ListExceptions::elementsWithout(const LongArray& stored,
                                                                 const ForgottenPerson& person) {
  LongArrayElements elements;
  for (std::size_t index = 0; index < stored.size(); ++index) {
    const auto exception = exceptionOf(stored.at(index));
    // One that cannot be read may be about anybody.
    if (exception && !isAbout(*exception, person)) elements.push_back(elementAt(stored, index));
  }
  return elements.size() == stored.size() ? std::nullopt : std::optional(std::move(elements));
}

}  // namespace pellor
