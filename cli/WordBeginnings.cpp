#include "cli/WordBeginnings.h"

#include <algorithm>
#include <utility>

namespace pellor::cli {

void WordBeginnings::add(std::size_t person, std::string name) { _names.push_back({person, std::move(name)}); }

std::string_view WordBeginnings::rest(const Beginning& beginning) const {
  return std::string_view(_names[beginning.name].text).substr(beginning.offset);
}

void WordBeginnings::order() {
  if (std::exchange(_isOrdered, true)) return;
  for (std::uint32_t name = 0; name < _names.size(); ++name) {
    const std::string& text = _names[name].text;
    for (std::uint32_t offset = 0; offset < text.size(); ++offset) {
      if (offset == 0 || text[offset - 1] == ' ') _beginnings.push_back({name, offset});
    }
  }
  std::ranges::sort(_beginnings, [this](const Beginning& left, const Beginning& right) {
    ++_comparisons;
    return rest(left) < rest(right);
  });
}

std::vector<std::size_t> WordBeginnings::find(std::string_view text) {
  if (text.empty()) return {};
  order();
  const auto beginningOf = [&](const Beginning& beginning) {
    ++_comparisons;
    return rest(beginning).substr(0, text.size());
  };
  const auto found = std::ranges::equal_range(_beginnings, text, {}, beginningOf);
  std::vector<std::size_t> persons;
  for (const Beginning& beginning : found) persons.push_back(_names[beginning.name].person);
  std::ranges::sort(persons);
  const auto repeated = std::ranges::unique(persons);
  persons.erase(repeated.begin(), repeated.end());
  return persons;
}

}  // namespace pellor::cli
