// The entries of a dictionary as they lie in somebody's memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "pellor/runtime/Value.h"

namespace pellor {

/// One entry, seen and not copied. Texts live as long as whatever the dictionary was viewed in.
struct EntryView {
  std::string_view key;
  Value::Kind kind = Value::Kind::boolean;
  std::int64_t integer = 0;             ///< of an integer
  std::string_view text;                ///< of a string
  std::vector<std::string_view> texts;  ///< of an array: its strings, in order
  bool hasOnlyTexts = true;             ///< of an array: whether it has no other elements
  std::optional<Value> value;           ///< a value of any other kind; of an array all of it if it has other elements

  /// The entry's value, whatever its kind.
  Value copy() const;
};

/// The entries of one dictionary, by key. Made to be filled again and again: the memory of the last entries serves the
/// next ones.
class DictionaryView {
 public:
  void clear() { _count = 0; }
  /// A new last entry, to be filled in; the reference lives until the next call.
  EntryView& append(std::string_view key, Value::Kind kind);
  /// Takes over the entries of a dictionary, which has to outlive this view.
  void assign(const Dictionary& dictionary);

  bool isEmpty() const { return _count == 0; }
  const EntryView* begin() const { return _entries.data(); }
  const EntryView* end() const { return _entries.data() + _count; }

 private:
  std::vector<EntryView> _entries;
  std::size_t _count = 0;
};

}  // namespace pellor
