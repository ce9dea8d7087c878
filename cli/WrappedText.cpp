#include "cli/WrappedText.h"

#include <algorithm>
#include <vector>

#include "pellor/linux/text/IcuText.h"
#include "pellor/linux/text/TerminalText.h"

namespace pellor::cli {
namespace {

constexpr std::size_t Indentation = 4;

/// The marks around isolated text, in which no line is broken.
struct IsolationMarks {
  char begin;
  char end;
};

const IsolationMarks& isolationMarks() {
  static const IsolationMarks marks = [] {
    const std::string isolated = isolatedText("\u05D0");
    return IsolationMarks{isolated.front(), isolated.back()};
  }();
  return marks;
}

struct Word {
  std::size_t gap;  ///< spaces before it
  std::string_view text;
};

std::size_t wordEnd(std::string_view line, std::size_t begin) {
  bool isIsolated = false;
  std::size_t end = begin;
  for (; end < line.size() && (isIsolated || line[end] != ' '); ++end) {
    if (line[end] == isolationMarks().begin) isIsolated = true;
    if (line[end] == isolationMarks().end) isIsolated = false;
  }
  return end;
}

std::vector<Word> wordsOf(std::string_view line) {
  std::vector<Word> words;
  for (std::size_t place = 0; place < line.size();) {
    const std::size_t begin = std::min(line.find_first_not_of(' ', place), line.size());
    const std::size_t end = wordEnd(line, begin);
    if (end > begin) words.push_back({begin - place, line.substr(begin, end - begin)});
    place = end;
  }
  return words;
}

/// Where the last column of a line begins: the word, and how far to the right it is.
struct LastColumn {
  std::size_t word = 0;
  std::size_t place = 0;
};

LastColumn lastColumnOf(const std::vector<Word>& words) {
  LastColumn last;
  std::size_t place = 0;
  for (std::size_t index = 0; index < words.size(); ++index) {
    place += words[index].gap;
    if (index == 0 || words[index].gap > 1) last = {index, place};
    place += displayWidth(words[index].text);
  }
  return last;
}

std::string wrappedLine(std::string_view line, std::size_t width) {
  const std::vector<Word> words = wordsOf(line);
  const LastColumn last = lastColumnOf(words);
  const bool hasRoom = last.place <= width / 2;
  const bool hasColumns = last.word > 0;
  const std::size_t indentation =
      std::min(width / 2, (hasRoom ? last.place : 0) + (hasRoom && hasColumns ? 0 : Indentation));
  std::string text;
  std::size_t place = 0;
  for (std::size_t index = 0; index < words.size(); ++index) {
    const auto& [gap, word] = words[index];
    const std::size_t wordWidth = displayWidth(word);
    const bool isBelow = index > 0 && ((!hasRoom && index == last.word) || place + gap + wordWidth > width);
    if (isBelow) text += '\n';
    const std::size_t blanks = isBelow || (index == 0 && !hasRoom && !hasColumns) ? indentation : gap;
    text.append(blanks, ' ').append(word);
    place = (isBelow ? 0 : place) + blanks + wordWidth;
  }
  return text;
}

}  // namespace

std::string wrapped(std::string_view text, std::size_t width) {
  std::string result;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    const bool isWhole = displayWidth(line) <= width || line.find('\t') != std::string_view::npos;
    result += isWhole ? std::string(line) : wrappedLine(line, width);
    if (end < text.size()) result += '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

}  // namespace pellor::cli
