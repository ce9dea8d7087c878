// Explanations that belong to no command.
#pragma once

namespace pellor::cli {

/// How a command is told whom it is about.
inline constexpr const char* HelpOnWho = R"(WHO names a friend, and for add, allow and favorites a contact. The first of
these that fits anybody decides:

  2:5             the friend in slot 5 of page 2; both count from 1
  a1b2-c3d4       a GUID, as "pellor contacts" shows it
  0151 2345679    a number or an address, in any spelling
  "Zoë Martin"    a whole name or nickname, its words in any order
  zoe             the beginnings of words of a name or nickname; else of a
                  contact's organisation; else of an e-mail address
  0151 234        the beginning or the end of a number, three digits at least

Case, accents and width do not matter: zoe is Zoë, muller and mueller are Müller.
But of Anna Gross and Anna Groß, a whole name is the one that is written so.

Where several fit they are listed with their numbers. On a terminal one key
chooses, and Esc nobody. Elsewhere, and with --json, the command fails, and the
list says what to type: zoe#2 is the second of those whom zoe fits, as long as
the list and the contacts do not change.
)";

}  // namespace pellor::cli
