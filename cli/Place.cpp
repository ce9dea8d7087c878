#include "cli/Place.h"
#include "cli/Output.h"

#include <algorithm>
#include <charconv>

#include "cli/CommandError.h"

namespace pellor::cli {
namespace {

bool isNumber(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char digit) { return digit >= '0' && digit <= '9'; });
}

// Counted from 1 in `text`, from 0 in the result.
std::uint64_t indexIn(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number == 0) {
    throw UsageError(inQuotes(text) + " is no page or slot: they are numbered from 1");
  }
  return number - 1;
}

}  // namespace

std::string textOf(const Place& place) { return std::to_string(place.page + 1) + ":" + std::to_string(place.slot + 1); }

std::optional<Place> placeIn(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const std::string_view page = text.substr(0, colon);
  const std::string_view slot = text.substr(colon + 1);
  if (!isNumber(page) || !isNumber(slot)) return std::nullopt;
  return Place{indexIn(page), indexIn(slot)};
}

std::uint64_t pageIn(std::string_view text) { return indexIn(text); }

}  // namespace pellor::cli
