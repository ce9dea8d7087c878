#include "pellor/list/internal/ForgottenPerson.h"

#include <algorithm>
#include <utility>

namespace pellor {
namespace {

// What a step did to pages beside those that came or went with their friends.
bool isAboutPage(const PageRecord& page) { return page.isMoved || page.titleBefore != page.titleAfter; }

bool isAboutFriends(StepKind kind) {
  switch (kind) {
    case StepKind::added:
    case StepKind::removed:
    case StepKind::moved:
    case StepKind::changedFriend:
      return true;
    default:
      return isAutomatic(kind);
  }
}

}  // namespace

ForgottenPerson ForgottenPerson::amongOthers(IsOfAnother isOfAnother) const {
  ForgottenPerson person = *this;
  person._isOfAnother = std::move(isOfAnother);
  return person;
}

void ForgottenPerson::add(const FriendIdentity& identity) {
  if (!identity.guid.empty()) _guids.insert(identity.guid);
  if (!identity.name.empty()) _names.insert(identity.name);
  _destinations.insert(identity.destinations.begin(), identity.destinations.end());
  _fingerprints.insert(fingerprintOf(identity));
}

void ForgottenPerson::learn(const std::vector<StepRecord>& steps) {
  for (std::size_t known = 0; known != _fingerprints.size();) {
    known = _fingerprints.size();
    for (const StepRecord& step : steps) {
      for (const FriendRecord& person : step.friends) {
        if (!isTheirs(person.before) && !isTheirs(person.after)) continue;
        if (!person.before.empty()) add(identityOf(person.before));
        if (!person.after.empty()) add(identityOf(person.after));
      }
    }
  }
}

bool ForgottenPerson::isTheirs(const FriendIdentity& identity) const {
  if (_guids.contains(identity.guid)) return true;
  // A person who was linked with another contact since.
  if (!identity.guid.empty() && !_guids.empty() && !_names.contains(identity.name)) return false;
  const bool isAlike = identity.destinations.empty() && identity.guid.empty()
                           ? _names.contains(identity.name)
                           : std::ranges::any_of(identity.destinations, [this](const std::string& destination) {
                               return _destinations.contains(destination);
                             });
  return isAlike && !_isOfAnother(identity);
}

// The names of a summary may have been cut.
bool ForgottenPerson::isNamed(const std::string& text) const {
  constexpr std::size_t LongestPart = 3;  // of a character that was cut off
  const auto isText = [&](const std::string& name) {
    return name == text || (text.size() + LongestPart >= StepSummary::LongestName && name.starts_with(text));
  };
  return std::ranges::any_of(_names, isText) || std::ranges::any_of(_destinations, isText);
}

bool ForgottenPerson::isMentioned(const std::string& text) const {
  const auto isPart = [&](const std::string& known) { return text.find(known) != std::string::npos; };
  return std::ranges::any_of(_guids, isPart) || std::ranges::any_of(_destinations, isPart) || _names.contains(text);
}

bool ForgottenPerson::isMentioned(const Value& value) const {
  if (const std::string* text = value.string()) return isMentioned(*text);
  if (const Array* array = value.array())
    return std::ranges::any_of(*array, [this](const Value& each) { return isMentioned(each); });
  const Dictionary* entries = value.dictionary();
  return entries && std::ranges::any_of(*entries, [this](const auto& each) {
           return isMentioned(each.first) || isMentioned(each.second);
         });
}

std::optional<StepRecord> ForgottenPerson::without(StepRecord step) const {
  const auto told = std::erase_if(
      step.friends, [this](const FriendRecord& person) { return isTheirs(person.before) || isTheirs(person.after); });
  for (PageRecord& page : step.pages)
    std::erase_if(page.fingerprints, [this](std::uint32_t each) { return _fingerprints.contains(each); });
  if (told > 0 && step.friends.empty() && std::ranges::none_of(step.pages, isAboutPage)) return std::nullopt;
  const StepSummary& summary = step.summary;
  const auto named = std::erase_if(step.summary.names, [this](const std::string& name) { return isNamed(name); });
  if (named > 0 && summary.added + summary.removed + summary.moved + summary.changed <= named) return std::nullopt;
  const bool isMeaningless = told > 0 && step.friends.empty() && isAboutFriends(step.kind);
  if (!isMeaningless && !isMentioned(Value(step.evidence))) return step;
  return summaryAlone(std::move(step));
}

}  // namespace pellor
