#include "pellor/friends/PLUtility.h"

#include <array>

#include "pellor/platform/Platform.h"

namespace pellor {
namespace {

const Platform& currentPlatform() { return platformOf(Process::current()); }

// The length that the first byte of a UTF-8 character announces; 0 for a byte that begins none.
std::size_t announcedLength(unsigned char first) {
  if (first < 0x80) return 1;
  if ((first & 0xE0) == 0xC0) return 2;
  if ((first & 0xF0) == 0xE0) return 3;
  return 0;
}

// The first character of a text, if it is a single 16-bit unit; absent for longer ones, whose halves are no letters.
std::optional<std::pair<char16_t, std::string>> firstUnit(const std::string& text) {
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = announcedLength(first);
  if (length == 0 || length > text.size()) return std::nullopt;
  if (length == 1) return std::pair(static_cast<char16_t>(first), text.substr(0, 1));
  unsigned unit = first & (0xFFU >> (length + 1));
  for (std::size_t index = 1; index < length; ++index) {
    const auto byte = static_cast<unsigned char>(text[index]);
    if ((byte & 0xC0) != 0x80) return std::nullopt;
    unit = (unit << 6) | (byte & 0x3FU);
  }
  // A shorter character in more bytes than it takes is no valid text either.
  if (unit < (length == 2 ? 0x80U : 0x800U)) return std::nullopt;
  return std::pair(static_cast<char16_t>(unit), text.substr(0, length));
}

std::string base64(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t index = 0; index < bytes.size(); index += 3) {
    const auto group = bytes.subspan(index).first(std::min<std::size_t>(3, bytes.size() - index));
    std::uint32_t bits = 0;
    for (std::size_t place = 0; place < 3; ++place) bits = (bits << 8) | (place < group.size() ? group[place] : 0U);
    for (std::size_t place = 0; place < 4; ++place) {
      text += place > group.size() ? '=' : digits[(bits >> (18 - 6 * place)) & 0x3F];
    }
  }
  return text;
}

}  // namespace

bool PLUtility::personHasLinkages(const RecordRef& record) { return record && record->linkID() != InvalidRecordID; }

PersonNameFormatter& PLUtility::_nameFormatter() { return *currentPlatform().personNames; }

std::optional<std::string> PLUtility::initialsForPerson(const RecordRef& record) {
  const RecordRef named = record ? record->preferredLinkedPersonForName() : nullptr;
  if (!named || !named->isPersonKind()) return std::nullopt;
  const std::string initials = _nameFormatter().abbreviatedName(named->recordValue(RecordProperty::firstName),
                                                                named->recordValue(RecordProperty::lastName));
  if (initials.empty()) return std::nullopt;
  return currentPlatform().text->uppercase(initials);
}

std::optional<std::string> PLUtility::initialForString(const std::optional<std::string>& text) {
  if (!text || text->empty() || !isRomanString(text)) return std::nullopt;
  const auto first = firstUnit(*text);
  if (!first || !currentPlatform().text->isLetterOrMark(first->first)) return std::nullopt;
  return currentPlatform().text->uppercase(first->second);
}

bool PLUtility::isRomanString(const std::optional<std::string>& text) {
  if (!text) return true;
  const AddressBookStore& store = *currentPlatform().addressBook;
  return !store.containsNonLatinCharacters(*text) && !store.containsEmojiCharacters(*text);
}

std::string PLUtility::hashFromData(std::span<const std::uint8_t> data) {
  return base64(currentPlatform().digests->sha1(data));
}

std::string PLUtility::compressPhoneNumberString(std::string_view number) {
  PhoneNumberFormatter& formatter = *currentPlatform().phoneNumbers;
  const std::string homeCountry = formatter.homeCountryCode();
  const auto parsed = formatter.parsePhoneNumber(number, homeCountry);
  if (!parsed) return std::string(number);
  const std::string canonical = formatter.phoneNumberString(*parsed, PhoneNumberForm::canonical);
  const std::string country = formatter.phoneNumberCountryCode(*parsed);
  const std::uint32_t national = country == homeCountry ? PhoneNumberOptionNational : 0;
  return formatter.formatPhoneNumber(canonical, country, PhoneNumberStyleCompact, PhoneNumberOptionShort | national);
}

}  // namespace pellor
