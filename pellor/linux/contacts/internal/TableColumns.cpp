#include "pellor/linux/contacts/internal/TableColumns.h"

#include <algorithm>
#include <string>

namespace pellor {

namespace {

using Kind = ColumnKind;

struct KnownColumn {
  std::string_view name;
  Kind kind;
  std::string_view types{};
};

// As `plainName` writes them.
constexpr KnownColumn KnownColumns[] = {
    {"name", Kind::fullName},
    {"fullname", Kind::fullName},
    {"displayname", Kind::fullName},
    {"anzeigename", Kind::fullName},
    {"angezeigtername", Kind::fullName},
    {"givenname", Kind::givenName},
    {"firstname", Kind::givenName},
    {"vorname", Kind::givenName},
    {"familyname", Kind::familyName},
    {"lastname", Kind::familyName},
    {"nachname", Kind::familyName},
    {"familienname", Kind::familyName},
    {"additionalname", Kind::additionalNames},
    {"middlename", Kind::additionalNames},
    {"weiterevornamen", Kind::additionalNames},
    {"zweitervorname", Kind::additionalNames},
    {"nameprefix", Kind::namePrefix},
    {"title", Kind::namePrefix},
    {"anrede", Kind::namePrefix},
    {"namenspräfix", Kind::namePrefix},
    {"namesuffix", Kind::nameSuffix},
    {"suffix", Kind::nameSuffix},
    {"namenssuffix", Kind::nameSuffix},
    {"nickname", Kind::nickname},
    {"spitzname", Kind::nickname},
    {"organizationname", Kind::organization},
    {"organisationname", Kind::organization},
    {"company", Kind::organization},
    {"firma", Kind::organization},
    {"unternehmen", Kind::organization},
    {"namederorganisation", Kind::organization},
    {"notes", Kind::note},
    {"notizen", Kind::note},
    {"emailvalue", Kind::email},
    {"emailaddress", Kind::email},
    {"email", Kind::email},
    {"emailwert", Kind::email},
    {"emailadresse", Kind::email},
    {"emailtype", Kind::emailType},
    {"emaillabel", Kind::emailType},
    {"emailtyp", Kind::emailType},
    {"phonevalue", Kind::phone},
    {"telefonwert", Kind::phone},
    {"phone", Kind::phone},
    {"telefon", Kind::phone},
    {"phonetype", Kind::phoneType},
    {"phonelabel", Kind::phoneType},
    {"telefontyp", Kind::phoneType},
    {"telefonlabel", Kind::phoneType},
    {"primaryphone", Kind::phone, "pref"},
    {"haupttelefon", Kind::phone, "pref"},
    {"mobilephone", Kind::phone, "cell"},
    {"mobiltelefon", Kind::phone, "cell"},
    {"homephone", Kind::phone, "home"},
    {"telefonprivat", Kind::phone, "home"},
    {"businessphone", Kind::phone, "work"},
    {"telefongeschäftlich", Kind::phone, "work"},
    {"companymainphone", Kind::phone, "work"},
    {"telefonfirma", Kind::phone, "work"},
    {"otherphone", Kind::phone},
    {"weiterestelefon", Kind::phone},
    {"carphone", Kind::phone, "car"},
    {"autotelefon", Kind::phone, "car"},
    {"callback", Kind::phone},
    {"rückmeldung", Kind::phone},
    {"radiophone", Kind::phone},
    {"isdn", Kind::phone, "isdn"},
    {"pager", Kind::phone, "pager"},
    {"ttytddphone", Kind::phone, "textphone"},
    {"telefonfürhörbehinderte", Kind::phone, "textphone"},
    {"homefax", Kind::phone, "home,fax"},
    {"faxprivat", Kind::phone, "home,fax"},
    {"businessfax", Kind::phone, "work,fax"},
    {"faxgeschäftlich", Kind::phone, "work,fax"},
    {"otherfax", Kind::phone, "fax"},
    {"weiteresfax", Kind::phone, "fax"},
};

struct TypeWord {
  std::string_view word;
  std::string_view types;
};

constexpr TypeWord TypeWords[] = {
    {"home", "home"},
    {"privat", "home"},
    {"work", "work"},
    {"business", "work"},
    {"geschäftlich", "work"},
    {"arbeit", "work"},
    {"mobile", "cell"},
    {"cell", "cell"},
    {"mobil", "cell"},
    {"handy", "cell"},
    {"main", "pref"},
    {"hauptnummer", "pref"},
    {"pager", "pager"},
    {"homefax", "home,fax"},
    {"faxprivat", "home,fax"},
    {"workfax", "work,fax"},
    {"faxgeschäftlich", "work,fax"},
};

/// Letters alone, those of ASCII in lower case; others are in words such as "Geschäftlich".
std::string plainName(std::string_view name) {
  std::string plain;
  for (const char c : name) {
    if (c >= 'A' && c <= 'Z') plain += static_cast<char>(c - 'A' + 'a');
    if ((c >= 'a' && c <= 'z') || static_cast<unsigned char>(c) >= 0x80) plain += c;
  }
  return plain;
}

// No exporter has a hundred values of a kind.
std::size_t numberIn(std::string_view name) {
  std::size_t number = 0;
  for (const char c : name) {
    if (c >= '0' && c <= '9') number = (number * 10 + static_cast<std::size_t>(c - '0')) % 1000;
  }
  return number;
}

}  // namespace

std::optional<ContactColumn> contactColumn(std::string_view name) {
  const auto found = std::ranges::find(KnownColumns, plainName(name), &KnownColumn::name);
  if (found == std::end(KnownColumns)) return std::nullopt;
  return ContactColumn{found->kind, numberIn(name), found->types};
}

std::string_view cardTypeOf(std::string_view word) {
  const auto found = std::ranges::find(TypeWords, plainName(word), &TypeWord::word);
  return found == std::end(TypeWords) ? std::string_view() : found->types;
}

}  // namespace pellor
