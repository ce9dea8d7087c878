// Texts of other people on their way to a terminal. What they hold must neither steer it nor be unseen.
#pragma once

#include <string>
#include <string_view>

namespace pellor {

/// The text on one line, as it can be seen:
///
/// - control characters (C0, DEL, C1) and the separators of lines and paragraphs are `blank`;
/// - what has no shape is gone: marks, embeddings, overrides and isolates of direction, zero-width characters, fillers,
///   tags. Joiners stay between letters of scripts that are joined and between the pictures of one, and a variation
///   selector behind its character;
/// - bytes that are no UTF-8 are U+FFFD.
///
/// Any thread; in linear time.
std::string visibleText(std::string_view text, char blank = ' ');

/// The visible text and, where it holds characters that are written from right to left, marks around it: `terminalText`
/// makes isolates of these, so that the text orders nothing beside it. Any thread.
std::string isolatedText(std::string_view text);

/// What is between the marks of an isolated text; any other text as it is. Any thread.
std::string_view withoutIsolation(std::string_view text);

/// All that goes to a terminal, line ends and tabs between fields included: visible, isolated texts between U+2068 and
/// U+2069. An isolate ends with its line or field. Text that has been here is not changed again but for its isolates,
/// which go. Any thread.
std::string terminalText(std::string_view text);

/// JSON text in which every character that would not be visible is escaped; it says what it said. Any thread.
std::string visibleJson(std::string_view json);

}  // namespace pellor
