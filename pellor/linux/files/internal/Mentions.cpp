#include "pellor/linux/files/internal/Mentions.h"

#include <algorithm>
#include <limits>

#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/Value.h"

namespace pellor {
namespace {

// A shorter one may be a part of anything.
constexpr std::size_t ShortestDestination = 6;
constexpr std::size_t NoText = std::numeric_limits<std::size_t>::max();

// Numbers that differ before these are written with and without the numbers of country and area.
constexpr std::size_t LastDigits = 7;
constexpr std::size_t FewestDigits = 3;

std::string lastDigitsOf(std::string_view text) {
  std::string digits;
  for (const char character : text)
    if (character >= '0' && character <= '9') digits += character;
  return digits.size() <= LastDigits ? digits : digits.substr(digits.size() - LastDigits);
}

}  // namespace

Mentions::Mentions(const ForgottenTraits& person) {
  add(person.guids(), NoText);
  add(person.destinations(), ShortestDestination);
  add(person.names(), NoText);
  for (const std::string& destination : person.destinations()) {
    if (destination.find('@') != std::string::npos) continue;
    if (std::string digits = lastDigitsOf(destination); digits.size() >= FewestDigits) _digits.push_back(digits);
  }
}

void Mentions::add(const std::set<std::string>& texts, std::size_t shortest) {
  _texts.insert(texts.begin(), texts.end());
  for (const std::string& text : texts) {
    const auto encoded = encodeCBOR(Value(text));
    if (text.size() >= shortest)
      _patterns.push_back(text);
    else if (encoded)
      _patterns.emplace_back(encoded->begin(), encoded->end());
  }
}

bool Mentions::areIn(std::string_view bytes) const {
  return std::ranges::any_of(
      _patterns, [bytes](const std::string& pattern) { return bytes.find(pattern) != std::string_view::npos; });
}

bool Mentions::areTheText(std::string_view text) const {
  if (_texts.contains(text)) return true;
  const std::string digits = lastDigitsOf(text);
  return std::ranges::find(_digits, digits) != _digits.end();
}

}  // namespace pellor
