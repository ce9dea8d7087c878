#include "pellor/linux/contacts/NameSearchKey.h"

#include <algorithm>
#include <vector>

#include "pellor/linux/contacts/AlphabeticalOrder.h"
#include "pellor/linux/text/CollationKeys.h"
#include "pellor/linux/text/TextLimits.h"

namespace pellor {

namespace {

// Below every byte of a collation key's primary level.
constexpr const char* WordSeparator = "\x01";

std::string keyOf(std::vector<std::string> words) {
  std::ranges::sort(words);
  std::string key;
  for (const std::string& word : words) key += (key.empty() ? "" : WordSeparator) + word;
  return key;
}

}  // namespace

std::string nameSearchKey(std::string_view name) { return nameSearchKey(searchWords(nameWithinLimit(name))); }

std::string nameSearchKey(std::span<const SearchWord> words) {
  std::vector<std::string> keys;
  for (const SearchWord& word : words) keys.push_back(word.key);
  return keyOf(std::move(keys));
}

std::string spelledOutNameKey(std::span<const SearchWord> words) {
  std::vector<std::string> keys;
  bool hasOtherSpelling = false;
  for (const SearchWord& word : words) {
    hasOtherSpelling = hasOtherSpelling || !word.spelledOut.empty();
    keys.push_back(word.spelledOut.empty() ? word.key : word.spelledOut);
  }
  return hasOtherSpelling ? keyOf(std::move(keys)) : std::string();
}

std::string nameSortKey(std::string_view name) {
  static const AlphabeticalOrder order("");
  return order.key(name);
}

}  // namespace pellor
