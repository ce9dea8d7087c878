#include "bench/Friends.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace pellor::bench {
namespace {

struct Name {
  const char* text;
  const char* ascii;  ///< as it stands in an address
};

constexpr std::array<Name, 31> FirstNames = {{
    {"Anna", "anna"},       {"Zoë", "zoe"},      {"Jörg", "joerg"},       {"Réka", "reka"},     {"Oskar", "oskar"},
    {"Ελένη", "eleni"},     {"Мила", "mila"},    {"云雀", "yunque"},      {"ひなた", "hinata"}, {"ليلى", "layla"},
    {"आशा", "asha"},        {"별하", "byeolha"}, {"Bartholomew", "bart"}, {"Maria", "maria"},   {"Tomás", "tomas"},
    {"Łucja", "lucja"},     {"Işıl", "isil"},    {"Harriet", "harriet"},  {"Taras", "taras"},   {"Noa", "noa"},
    {"Wilhelmina", "mina"}, {"Edgar", "edgar"},  {"Khuê", "khue"},        {"Síle", "sile"},     {"Nikos", "nikos"},
    {"Ludo", "ludo"},       {"Maud", "maud"},    {"Iris", "iris"},        {"Søren", "soeren"},  {"Åsa", "asa"},
    {"Chloé", "chloe"},
}};
constexpr std::array<Name, 23> LastNames = {{
    {"Kellerwald", "kellerwald"}, {"Béruchon", "beruchon"},
    {"Mühlgrab", "muehlgrab"},    {"Tölgyvári", "tolgyvari"},
    {"Ekvik-Lind", "ekvik"},      {"Καλλιμάνη", "kallimani"},
    {"Семенова", "semenova"},     {"林", "lin"},
    {"かざみ", "kazami"},         {"نجمدار", "najmdar"},
    {"निर्मलवाडी", "nirmal"},      {"한", "han"},
    {"Quill", "quill"},           {"Sandmeer", "sandmeer"},
    {"Pettigrass", "pettigrass"}, {"Dalewood", "dalewood"},
    {"Wójcicka", "wojcicka"},     {"Yıldızhan", "yildizhan"},
    {"Ó Corráin", "ocorrain"},    {"Fernhill", "fernhill"},
    {"Nguyễn", "nguyen"},         {"van der Heuvel", "heuvel"},
    {"Östberg", "ostberg"},
}};
constexpr std::array<const char*, 3> MailHosts = {"example.org", "mail.example.com", "post.example.net"};

constexpr std::size_t NumbersPerCountry = 10'000'000;

// Spreads the people over the order of their identifiers (splitmix64).
std::uint64_t scattered(std::uint64_t number) {
  number += 0x9E3779B97F4A7C15u;
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9u;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBu;
  return number ^ (number >> 31);
}

std::string padded(std::size_t number, int width) {
  char text[24];
  std::snprintf(text, sizeof text, "%0*zu", width, number);
  return text;
}

std::string guidOf(std::size_t number) {
  const std::uint64_t high = scattered(2 * number), low = scattered(2 * number + 1);
  const auto part = [](std::uint64_t bits, int shift, std::uint64_t mask) {
    return static_cast<unsigned long long>((bits >> shift) & mask);
  };
  char text[37];
  std::snprintf(text, sizeof text, "%08llX-%04llX-%04llX-%04llX-%012llX", part(high, 32, 0xFFFFFFFF),
                part(high, 16, 0xFFFF), part(high, 0, 0xFFFF), part(low, 48, 0xFFFF), part(low, 0, 0xFFFFFFFFFFFF));
  return text;
}

std::string phoneNumber(std::size_t number) {
  constexpr std::array<const char*, 3> prefixes = {"+491511", "+3361", "+39331"};
  constexpr std::array<int, 3> widths = {7, 7, 7};
  const std::size_t country = number % prefixes.size();
  return prefixes[country] + padded(number / prefixes.size() % NumbersPerCountry, widths[country]);
}

const Name& firstNameOf(std::size_t number) { return FirstNames[scattered(number) % FirstNames.size()]; }
const Name& lastNameOf(std::size_t number) { return LastNames[(scattered(number) >> 16) % LastNames.size()]; }

std::string mailAddress(std::size_t owner, std::size_t ordinal) {
  return std::string(firstNameOf(owner).ascii) + "." + lastNameOf(owner).ascii + std::to_string(owner) + "@" +
         MailHosts[(owner + ordinal) % MailHosts.size()];
}

}  // namespace

Person personAt(std::size_t number) {
  Person person;
  person.guid = guidOf(number);
  person.name = std::string(firstNameOf(number).text) + " " + lastNameOf(number).text;
  person.phones.push_back(phoneNumber(2 * number));
  person.addresses.push_back(mailAddress(number, 0));
  if (number % 4 == 1) person.phones.push_back(phoneNumber(2 * number + 1));
  if (number % 4 == 3) person.addresses.push_back(mailAddress(number, 1));
  return person;
}

std::string writtenPhoneNumber(std::size_t number) {
  const std::string digits = padded(number % NumbersPerCountry, 7);
  return "+49 1512 " + digits.substr(0, 3) + " " + digits.substr(3);
}

Dictionary storedForm(const Person& person, std::size_t number) {
  std::vector<std::string> destinations = person.phones;
  destinations.insert(destinations.end(), person.addresses.begin(), person.addresses.end());
  std::ranges::sort(destinations);
  const auto recordID = static_cast<std::int32_t>(number + 1);
  const bool isAscii = person.name[0] >= 'A' && person.name[0] <= 'Z';
  return {{"ABRecordID", recordID},
          {"ABRecordGUID", person.guid},
          {"ABDatabaseUID", DatabaseUID},
          {"Name", person.name},
          {"AllValues", Array(destinations.begin(), destinations.end())},
          {"Monogram", isAscii ? person.name.substr(0, 1) : std::string()}};
}

Array storedList(std::size_t first, std::size_t count) {
  Array list;
  list.reserve(count);
  for (std::size_t number = first; number < first + count; ++number) {
    list.emplace_back(storedForm(personAt(number), number));
  }
  return list;
}

std::string cardOf(const Person& person) {
  const std::size_t space = person.name.find(' ');
  std::string card = "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:" + person.guid + "\r\nFN:" + person.name +
                     "\r\nN:" + person.name.substr(space + 1) + ";" + person.name.substr(0, space) + ";;;\r\n";
  for (const std::string& phone : person.phones) card += "TEL;TYPE=CELL:" + phone + "\r\n";
  for (const std::string& address : person.addresses) card += "EMAIL:" + address + "\r\n";
  return card + "END:VCARD\r\n";
}

}  // namespace pellor::bench
