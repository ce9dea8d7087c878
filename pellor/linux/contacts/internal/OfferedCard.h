// One card that a file offers for the contacts.
#pragma once

#include <cstddef>
#include <string>

namespace pellor {

/// A vCard, or what should have been one.
struct OfferedCard {
  std::size_t number = 0;  ///< of the card in its file, from 1 on; 0 where the line says it, and for the whole file
  std::size_t line = 0;    ///< of the row of a table, from 1 on; 0 for anything else
  std::string name;        ///< of the person, as far as it can be read; may be empty
  std::string text;        ///< UTF-8 with CRLF at the ends of lines, from BEGIN:VCARD to END:VCARD
  std::string problem;     ///< why it is no card; empty when it is one
};

}  // namespace pellor
