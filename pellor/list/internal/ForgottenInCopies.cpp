#include "pellor/list/internal/ForgottenInCopies.h"

#include <algorithm>
#include <utility>

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/list/internal/ListExceptions.h"
#include "pellor/list/internal/ListHistory.h"
#include "pellor/list/internal/RemovedFriends.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/LongArrayElements.h"

namespace pellor {
namespace {

LongArray arrayIn(const Dictionary& values, std::string_view key) {
  const Value* value = valueForKey(values, key);
  if (!value) return {};
  if (const LongArray* array = value->longArray()) return *array;
  return value->array() ? LongArray(*value->array()) : LongArray();
}

// Of an element of the list the element itself, of the memory of the removed what is in it.
Dictionary formIn(const Value& element, std::string_view key) {
  const Dictionary* entries = element.dictionary();
  if (!entries) return {};
  if (key == PLFriendListKey) return *entries;
  const Value* form = valueForKey(*entries, "form");
  return form && form->dictionary() ? *form->dictionary() : Dictionary();
}

void addForms(std::vector<Dictionary>& forms, const Dictionary& values, std::string_view key) {
  for (const Value& element : arrayIn(values, key).elements()) forms.push_back(formIn(element, key));
}

// A memory that cannot be read may be of anybody.
bool isUnreadableMemory(std::string_view key, const Dictionary& form) { return key != PLFriendListKey && form.empty(); }

// What is left of the array; absent where nothing in it is the person's. A friend leaves an empty slot.
std::optional<LongArrayElements> elementsWithout(const LongArray& stored, std::string_view key,
                                                 const ForgottenPerson& person) {
  LongArrayElements elements;
  bool isChanged = false;
  for (std::size_t index = 0; index < stored.size(); ++index) {
    const Dictionary form = formIn(stored.at(index), key);
    const bool isTheirs = isUnreadableMemory(key, form) || person.isTheirs(form);
    isChanged = isChanged || isTheirs;
    if (!isTheirs) elements.push_back(elementAt(stored, index));
    if (isTheirs && key == PLFriendListKey) elements.emplace_back(Value(Dictionary()));
  }
  return isChanged ? std::optional(std::move(elements)) : std::nullopt;
}

std::vector<FriendIdentity> othersThan(const ForgottenPerson& person, const Snapshot& list) {
  std::vector<FriendIdentity> others;
  for (const auto& each : list.friends())
    if (!person.isTheirs(identityOf(*each))) others.push_back(identityOf(*each));
  return others;
}

}  // namespace

ForgottenInCopies::ForgottenInCopies(std::string domain, const ForgottenPerson& person, const Snapshot& list)
    : _domain(std::move(domain)),
      _person(person.amongOthers([others = othersThan(person, list)](const FriendIdentity& identity) {
        return std::ranges::any_of(others, [&](const auto& other) { return areAddedAlike(other, identity); });
      })) {}

// What one form adds may tell that another one is the person's too.
void ForgottenInCopies::learn(const Dictionary& values) {
  std::vector<Dictionary> forms;
  addForms(forms, values, PLFriendListKey);
  addForms(forms, values, RemovedFriends::Key);
  const auto steps = ListHistory::recordsIn(arrayIn(values, ListHistory::Key));
  do _person.learn(steps);
  while (learnFrom(forms));
}

bool ForgottenInCopies::learnFrom(const std::vector<Dictionary>& forms) {
  const auto known = [this] { return guids().size() + destinations().size() + names().size(); };
  const std::size_t before = known();
  for (const Dictionary& form : forms)
    if (_person.isTheirs(form)) _person.add(identityOf(form));
  return known() > before;
}

Dictionary ForgottenInCopies::without(const Dictionary& values) const {
  Dictionary changed;
  const auto take = [&](std::string_view key, std::optional<LongArrayElements> rest) {
    if (rest) changed.emplace(key, arrayOf(*std::move(rest)));
  };
  for (const std::string_view key : {PLFriendListKey, std::string_view(RemovedFriends::Key)})
    take(key, elementsWithout(arrayIn(values, key), key, _person));
  take(PLFriendListExceptionsKey, ListExceptions::elementsWithout(arrayIn(values, PLFriendListExceptionsKey), _person));
  take(ListHistory::Key, ListHistory::elementsWithout(arrayIn(values, ListHistory::Key), _person, {}));
  return changed;
}

}  // namespace pellor
