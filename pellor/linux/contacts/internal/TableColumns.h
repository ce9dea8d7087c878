// What the columns of a table of contacts are called.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace pellor {

enum class ColumnKind {
  fullName,
  givenName,
  familyName,
  additionalNames,
  namePrefix,
  nameSuffix,
  nickname,
  organization,
  note,
  email,
  emailType,  ///< of the e-mail address with that number
  phone,
  phoneType
};

struct ContactColumn {
  ColumnKind kind = ColumnKind::note;
  std::size_t number = 0;  ///< of the values of its kind: 2 for "Phone 2 - Value"; 0 without one
  std::string_view types;  ///< of a number or address that the column's name tells: "work,fax"; may be empty
};

/// What the column is; absent for one that contacts do not have. Capitals, blanks and punctuation in the name do not
/// count. Any thread.
std::optional<ContactColumn> contactColumn(std::string_view name);

/// The TYPE of a vCard that a word of a table stands for, "work" for "Geschäftlich"; empty where there is none. Any
/// thread.
std::string_view cardTypeOf(std::string_view word);

}  // namespace pellor
