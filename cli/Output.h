// Standard output and standard error of the program.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace pellor::cli {

/// What became of an attempt to write.
enum class OutputResult { whole, readerGone, failed };

/// Writes all of it to standard output, as `terminalText` has it. `failed` leaves the reason in errno.
OutputResult writeOutput(std::string_view text);

/// Writes that line to standard error, as `terminalText` has it.
void writeErrorLine(std::string_view line);

/// Writes a text to standard error as it is: what is not the program's own was made a `terminalText` before.
void writeErrorText(std::string_view text);

/// Writes "pellor: <text>" to standard error, as `terminalText` has it: one line, broken where a terminal is narrower.
void writeError(std::string_view text);

/// A text of somebody else's for a line of the answer: names come from other people's cards and go to a terminal. What
/// cannot be seen is gone, and one that is written from right to left is marked to be isolated
/// (pellor/linux/text/TerminalText.h).
std::string printable(std::string_view text);

/// Such a text between double quotes.
std::string inQuotes(std::string_view text);

/// The width of the terminal behind standard output; absent when it is none.
std::optional<std::size_t> terminalWidth();

/// The width of the terminal behind standard output; 80 when it is none.
std::size_t outputWidth();

/// The width of the terminal behind standard error; 80 when it is none.
std::size_t errorWidth();

/// A text that a person reads: in lines that the terminal behind standard output has room for (cli/WrappedText.h). As
/// it is where that is none.
std::string readable(std::string text);

/// A printable text in exactly `width` columns, filled with spaces or cut with "…".
std::string fitted(std::string_view text, std::size_t width);

/// One line on the terminal behind standard error that tells how far a long work is. Nothing where standard error is no
/// terminal. The line is gone after the object.
class ProgressLine {
 public:
  explicit ProgressLine(std::string what);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(std::size_t done, std::size_t total);
  void remove();

 private:
  const std::string _what;
  const bool _hasTerminal;
  bool _isShown = false;
};

}  // namespace pellor::cli
