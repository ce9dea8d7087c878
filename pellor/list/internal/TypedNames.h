// What names and numbers are compared by when somebody types them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/Platform.h"
#include "pellor/platform/TextService.h"
#include "pellor/runtime/Process.h"

namespace pellor {

/// Equal for two names that differ in nothing but case, accents and the order of words; a name without words equals
/// itself alone. Any thread that has a current process.
inline std::string wholeNameKey(std::string_view name) {
  TextService& text = *platformOf(Process::current()).text;
  std::vector<SearchWord> words = text.searchWords(name);
  // Words have no zero byte, and none begins with one.
  if (words.empty()) return '\0' + text.uppercase(name);
  std::ranges::sort(words, {}, &SearchWord::key);
  std::string key;
  for (const SearchWord& word : words) key += word.key + '\0';
  return key;
}

/// False for one or two digits: they are no part of a number, but perhaps a slot. Any thread.
inline bool mayBePartOfNumber(std::string_view text) {
  constexpr std::ptrdiff_t fewestDigits = 3;
  // Digits of other scripts begin with such a byte.
  const auto mayBeDigit = [](char c) { return (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0xC0; };
  return std::ranges::count_if(text, mayBeDigit) >= fewestDigits;
}

}  // namespace pellor
