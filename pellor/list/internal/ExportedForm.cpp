#include "pellor/list/internal/ExportedForm.h"

#include <optional>
#include <string>
#include <string_view>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"

namespace pellor {
namespace {

void put(Dictionary& form, std::string_view key, const std::optional<std::string>& text) {
  if (text) form.insert_or_assign(std::string(key), *text);
}

}  // namespace

Dictionary otherEntriesOf(const Dictionary& form) {
  Dictionary others;
  for (const auto& [key, value] : form)
    if (isOtherEntry(key)) others.emplace(key, value);
  return others;
}

// A form has an empty monogram for none; without a name that says no more than an absent one.
ExportedFriend exportedFriendOf(const Dictionary& form) {
  ExportedFriend person;
  person.name = stringForKey(form, PLPersonNameKey);
  person.monogram = stringForKey(form, PLPersonMonogramKey);
  if (!person.name && person.monogram == "") person.monogram.reset();
  person.chosenNumber = stringForKey(form, PLPersonPreferredDestinationKey);
  person.replyAs = stringForKey(form, PLPersonReplyAsKey);
  person.contactGUID = stringForKey(form, PLPersonRecordGUIDKey);
  const Value* destinations = valueForKey(form, PLPersonAllValuesKey);
  if (destinations && destinations->array())
    for (const Value& each : *destinations->array()) person.destinations.push_back(*each.string());
  const Value* metadata = valueForKey(form, PLPersonMetadataKey);
  if (metadata && metadata->dictionary()) person.metadata = *metadata->dictionary();
  person.otherEntries = otherEntriesOf(form);
  return person;
}

Dictionary formOf(const ExportedFriend& person) {
  Dictionary form;
  form.emplace(PLPersonRecordIDKey, InvalidRecordID);
  put(form, PLPersonNameKey, person.name);
  put(form, PLPersonMonogramKey, person.monogram);
  put(form, PLPersonPreferredDestinationKey, person.chosenNumber);
  put(form, PLPersonReplyAsKey, person.replyAs);
  put(form, PLPersonRecordGUIDKey, person.contactGUID);
  if (!person.destinations.empty())
    form.emplace(PLPersonAllValuesKey, Array(person.destinations.begin(), person.destinations.end()));
  if (!person.metadata.empty()) form.emplace(PLPersonMetadataKey, person.metadata);
  for (const auto& [key, value] : person.otherEntries)
    if (isOtherEntry(key)) form.emplace(key, value);
  return form;
}

}  // namespace pellor
