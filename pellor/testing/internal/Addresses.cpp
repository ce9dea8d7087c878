#include "pellor/testing/internal/Addresses.h"

namespace pellor {

namespace {

bool takeOut(std::string& text, std::string_view part) {
  const std::size_t place = text.find(part);
  if (place == std::string::npos) return false;
  text.erase(place, part.size());
  return true;
}

}  // namespace

std::string withoutSchemes(std::string_view text) {
  std::string rest(text);
  while (takeOut(rest, "tel:") || takeOut(rest, "mailto:")) {
  }
  return rest;
}

std::string lowerCasedAddress(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
  return result;
}

}  // namespace pellor
