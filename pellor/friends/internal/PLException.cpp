#include "pellor/friends/internal/PLException.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "pellor/friends/detail/PLPersonForm.h"

namespace pellor {
namespace {

constexpr std::array KindTexts{
    std::pair{PLDecisionKind::relinked, std::string_view("relinked")},
    std::pair{PLDecisionKind::unlinked, std::string_view("unlinked")},
    std::pair{PLDecisionKind::deduplicated, std::string_view("deduplicated")},
    std::pair{PLDecisionKind::cleanedUp, std::string_view("cleaned up")},
};

// The keys are those of a friend's stored form.
Dictionary formOf(const PLCardIdentity& identity) {
  Dictionary form;
  if (!identity.guid.empty()) form.emplace(PLPersonRecordGUIDKey, identity.guid);
  if (!identity.name.empty()) form.emplace(PLPersonNameKey, identity.name);
  if (!identity.destinations.empty())
    form.emplace(PLPersonAllValuesKey, Array(identity.destinations.begin(), identity.destinations.end()));
  return form;
}

PLCardIdentity identityUnder(const Dictionary& members, std::string_view key) {
  const Value* form = valueForKey(members, key);
  return form && form->dictionary() ? cardIdentityOf(*form->dictionary()) : PLCardIdentity();
}

}  // namespace

PLCardIdentity cardIdentityOf(const Dictionary& form) {
  PLCardIdentity identity{stringForKey(form, PLPersonRecordGUIDKey).value_or(std::string()),
                          stringForKey(form, PLPersonNameKey).value_or(std::string()),
                          {}};
  const Value* destinations = valueForKey(form, PLPersonAllValuesKey);
  if (!destinations || !destinations->array()) return identity;
  for (const Value& destination : *destinations->array())
    if (const std::string* text = destination.string()) identity.destinations.push_back(*text);
  std::ranges::sort(identity.destinations);
  return identity;
}

Dictionary dictionaryOf(const PLException& exception) {
  const auto* const kind = std::ranges::find(KindTexts, exception.kind, [](const auto& each) { return each.first; });
  Dictionary members{{"id", exception.id}, {"kind", kind->second}, {"friend", formOf(exception.person)}};
  if (exception.kind == PLDecisionKind::relinked) members.emplace("record", formOf(exception.record));
  return members;
}

std::optional<PLException> exceptionOf(const Value& value) {
  const Dictionary* members = value.dictionary();
  const auto id = members ? stringForKey(*members, "id") : std::nullopt;
  const auto text = members ? stringForKey(*members, "kind") : std::nullopt;
  if (!id || !text) return std::nullopt;
  const auto* const kind = std::ranges::find(KindTexts, *text, [](const auto& each) { return each.second; });
  if (kind == KindTexts.end()) return std::nullopt;
  return PLException{*id, kind->first, identityUnder(*members, "friend"), identityUnder(*members, "record")};
}

}  // namespace pellor
