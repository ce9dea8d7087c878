#include "pellor/runtime/DictionaryView.h"

namespace pellor {
namespace {

// Of a stored friend, whose entries need not move then while they are appended.
constexpr std::size_t UsualEntries = 10;
constexpr std::size_t UsualTexts = 4;

void view(const Array& array, EntryView& entry) {
  for (const Value& element : array) {
    if (const std::string* text = element.string()) {
      entry.texts.emplace_back(*text);
    } else {
      entry.hasOnlyTexts = false;
    }
  }
}

void view(const Value& value, EntryView& entry) {
  switch (value.kind()) {
    case Value::Kind::integer:
      entry.integer = *value.integer();
      break;
    case Value::Kind::string:
      entry.text = *value.string();
      break;
    case Value::Kind::array:
      view(*value.array(), entry);
      if (!entry.hasOnlyTexts) entry.value = value;
      break;
    default:
      entry.value = value;
      break;
  }
}

}  // namespace

Value EntryView::copy() const {
  if (value) return *value;
  if (kind == Value::Kind::integer) return integer;
  if (kind == Value::Kind::string) return text;
  return Array(texts.begin(), texts.end());
}

EntryView& DictionaryView::append(std::string_view key, Value::Kind kind) {
  if (_entries.empty()) _entries.reserve(UsualEntries);
  if (_count == _entries.size()) _entries.emplace_back();
  EntryView& entry = _entries[_count++];
  entry.key = key;
  entry.kind = kind;
  entry.texts.clear();
  if (kind == Value::Kind::array) entry.texts.reserve(UsualTexts);
  entry.hasOnlyTexts = true;
  entry.value.reset();
  return entry;
}

void DictionaryView::assign(const Dictionary& dictionary) {
  clear();
  for (const auto& [key, value] : dictionary) view(value, append(key, value.kind()));
}

}  // namespace pellor
