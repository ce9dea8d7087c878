#include "pellor/runtime/KeyedCoder.h"

#include <algorithm>
#include <utility>

namespace pellor {

namespace {

constexpr std::string_view SetKey = "$set";

/// Whether an only key of a dictionary could be taken for the mark of a set: "$set" behind any number of further "$".
bool resemblesSetKey(std::string_view key) {
  return key.ends_with(SetKey) && key.find_first_not_of('$') == key.size() - SetKey.size() + 1;
}

const Array* elementsOfSet(const Value& value) {
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary || dictionary->size() != 1 || dictionary->begin()->first != SetKey) return nullptr;
  return dictionary->begin()->second.array();
}

CodedClass classOf(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
    case Value::Kind::integer:
    case Value::Kind::real:
      return CodedClass::number;
    case Value::Kind::string:
      return CodedClass::string;
    case Value::Kind::data:
      return CodedClass::data;
    case Value::Kind::date:
      return CodedClass::date;
    case Value::Kind::array:
      return CodedClass::array;
    case Value::Kind::dictionary:
      break;
  }
  return elementsOfSet(value) ? CodedClass::set : CodedClass::dictionary;
}

template <class Change>
Value withElements(const Array& array, Change change) {
  Array changed;
  std::ranges::transform(array, std::back_inserter(changed), change);
  return changed;
}

/// A dictionary that looks like a set gets one more "$" in front of its key.
Value archived(const Value& value) {
  if (const Array* array = value.array()) return withElements(*array, archived);
  const Dictionary* dictionary = value.dictionary();
  if (!dictionary) return value;
  Dictionary changed;
  for (const auto& [key, element] : *dictionary) {
    const bool needsEscape = dictionary->size() == 1 && resemblesSetKey(key);
    changed.emplace(needsEscape ? "$" + key : key, archived(element));
  }
  return changed;
}

/// Undoes `archived`; absent when a class is not allowed. A set becomes the array of its elements.
std::optional<Value> unarchived(const Value& value, std::initializer_list<CodedClass> allowed);

std::optional<Value> unarchivedArray(const Array& array, std::initializer_list<CodedClass> allowed) {
  Array elements;
  for (const Value& archivedElement : array) {
    auto element = unarchived(archivedElement, allowed);
    if (!element) return std::nullopt;
    elements.push_back(*std::move(element));
  }
  return elements;
}

std::optional<Value> unarchivedDictionary(const Dictionary& dictionary, std::initializer_list<CodedClass> allowed) {
  Dictionary entries;
  for (const auto& [key, archivedElement] : dictionary) {
    auto element = unarchived(archivedElement, allowed);
    if (!element) return std::nullopt;
    const bool isEscaped = dictionary.size() == 1 && key != SetKey && resemblesSetKey(key);
    entries.emplace(isEscaped ? key.substr(1) : key, *std::move(element));
  }
  return entries;
}

std::optional<Value> unarchived(const Value& value, std::initializer_list<CodedClass> allowed) {
  if (std::ranges::find(allowed, classOf(value)) == allowed.end()) return std::nullopt;
  if (const Array* elements = elementsOfSet(value)) return unarchivedArray(*elements, allowed);
  if (const Array* array = value.array()) return unarchivedArray(*array, allowed);
  if (const Dictionary* dictionary = value.dictionary()) return unarchivedDictionary(*dictionary, allowed);
  return value;
}

}  // namespace

void KeyedArchive::encodeInteger(std::string_view key, std::int64_t value) {
  _content.insert_or_assign(std::string(key), Value(value));
}

void KeyedArchive::encodeObject(std::string_view key, const Value& value) {
  _content.insert_or_assign(std::string(key), archived(value));
}

void KeyedArchive::encodeSet(std::string_view key, const std::set<std::string>& strings) {
  const Dictionary set{{std::string(SetKey), Array(strings.begin(), strings.end())}};
  _content.insert_or_assign(std::string(key), Value(set));
}

std::int64_t KeyedArchive::decodeInteger(std::string_view key) const {
  const Value* value = valueForKey(_content, key);
  return value ? value->integer().value_or(0) : 0;
}

std::optional<Value> KeyedArchive::decodeObject(std::string_view key, std::initializer_list<CodedClass> allowed) const {
  const Value* value = valueForKey(_content, key);
  return value ? unarchived(*value, allowed) : std::nullopt;
}

std::optional<std::set<std::string>> KeyedArchive::decodeSet(std::string_view key) const {
  const Value* value = valueForKey(_content, key);
  const Array* elements = value ? elementsOfSet(*value) : nullptr;
  if (!elements) return std::nullopt;
  std::set<std::string> strings;
  for (const Value& element : *elements) {
    const std::string* text = element.string();
    if (!text) return std::nullopt;
    strings.insert(*text);
  }
  return strings;
}

}  // namespace pellor
