#include "cli/Choice.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <numeric>

#include "cli/CommandError.h"
#include "cli/Keyboard.h"
#include "cli/NameMatch.h"
#include "cli/Output.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/linux/text/TerminalText.h"

namespace pellor::cli {
namespace {

constexpr std::size_t MostOneKeyChoices = 9;
constexpr std::size_t MostDigits = 6;
constexpr std::size_t WidestColumn = 28;
constexpr std::string_view Gap = "  ";

using Json = nlohmann::ordered_json;
using Row = std::array<std::string, 4>;

bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string typedFor(const Choice& choice, std::size_t number) { return choice.who + "#" + std::to_string(number); }

// As a shell takes it for one word.
std::string shellWord(const std::string& text) {
  constexpr std::string_view special = " \t\n'\"\\$`&|;<>()*?[]{}~!^";
  if (text.find_first_of(special) == std::string::npos) return text;
  std::string quoted = "'";
  for (const char character : text) quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
  return quoted + "'";
}

Row rowOf(const Candidate& candidate, const std::string& label) {
  return {label, printable(candidate.name), printable(candidate.destination),
          candidate.place ? textOf(*candidate.place) : printable(candidate.organization)};
}

// The label stays whole; of the others the widest gives way first.
std::array<std::size_t, 4> columnsOf(const std::vector<Row>& rows, std::size_t width) {
  std::array<std::size_t, 4> columns{};
  for (const Row& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      const std::size_t needed = displayWidth(row[column]);
      columns[column] = std::max(columns[column], column == 0 ? needed : std::min(needed, WidestColumn));
    }
  }
  const auto taken = [&] { return std::reduce(columns.begin(), columns.end(), columns.size() * Gap.size()); };
  for (auto widest = columns.begin(); taken() > width; --*widest) {
    widest = std::ranges::max_element(columns.begin() + 1, columns.end());
    if (*widest == 0) break;
  }
  return columns;
}

std::string withoutBlanksBehind(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// Each line begins with a gap.
std::vector<std::string> tableOf(const std::vector<Row>& rows, std::size_t width) {
  const auto columns = columnsOf(rows, width);
  std::vector<std::string> lines;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      if (columns[column] > 0) line.append(Gap).append(fitted(row[column], columns[column]));
    }
    lines.push_back(withoutBlanksBehind(std::move(line)));
  }
  return lines;
}

using Labels = std::function<std::string(std::size_t)>;

std::vector<std::string> linesOf(const Choice& choice, const Labels& labelOf, std::size_t width) {
  std::vector<Row> rows;
  for (std::size_t index = 0; index < choice.candidates.size(); ++index) {
    rows.push_back(rowOf(choice.candidates[index], labelOf(index + 1)));
  }
  std::vector<std::string> lines = tableOf(rows, width);
  const std::size_t left = choice.count - choice.candidates.size();
  if (left > 0) lines.push_back(std::string(Gap) + "and " + std::to_string(left) + " more");
  return lines;
}

std::optional<std::size_t> numberIn(std::string_view digits) {
  const bool isNumber =
      !digits.empty() && digits.size() <= MostDigits && digits.front() != '0' && std::ranges::all_of(digits, isDigit);
  if (!isNumber) return std::nullopt;
  std::size_t number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

std::optional<std::string> oneKey(const TextWriter& write, const KeyReader& readKey) {
  const auto key = readKey();
  if (!key || !isDigit(*key)) return std::nullopt;
  write({&*key, 1});
  return std::string(1, *key);
}

// The terminal echoes nothing, and takes nothing back.
std::optional<std::string> typedDigits(const TextWriter& write, const KeyReader& readKey) {
  std::string digits;
  while (const auto key = readKey()) {
    if (*key == '\n' || *key == '\r') return digits;
    if (*key == '\b' || *key == '\x7f') {
      if (digits.empty()) continue;
      digits.pop_back();
      write("\b \b");
    } else if (isDigit(*key)) {
      digits += *key;
      write({&*key, 1});
    } else {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

Json textOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json jsonOf(const Candidate& candidate) {
  Json json = {{"name", textOrNull(candidate.name)}, {"destination", textOrNull(candidate.destination)}};
  if (candidate.place) {
    json["place"] = {{"page", candidate.place->page}, {"slot", candidate.place->slot}};
  } else {
    json["organization"] = textOrNull(candidate.organization);
    json["guid"] = candidate.guid;
  }
  return json;
}

}  // namespace

std::string textOf(const Choice& choice) { return inQuotes(choice.who) + " fits several"; }

std::vector<std::string> linesOf(const Choice& choice) {
  const auto labelOf = [&](std::size_t number) { return printable(shellWord(typedFor(choice, number))); };
  return linesOf(choice, labelOf, std::string::npos);
}

nlohmann::ordered_json jsonOf(const Choice& choice) {
  Json candidates = Json::array();
  for (std::size_t number = 1; number <= choice.candidates.size(); ++number) {
    Json candidate = {{"number", number}};
    candidate.update(jsonOf(choice.candidates[number - 1]));
    candidate["type"] = typedFor(choice, number);
    candidates.push_back(std::move(candidate));
  }
  return {{"candidates", std::move(candidates)}, {"moreCandidates", choice.count - choice.candidates.size()}};
}

std::optional<std::size_t> askFor(const Choice& choice, std::size_t width, const TextWriter& write,
                                  const KeyReader& readKey) {
  const std::size_t count = choice.candidates.size();
  const bool takesOneKey = count <= MostOneKeyChoices;
  const std::size_t labelWidth = std::to_string(count).size();
  const auto labelOf = [&](std::size_t number) {
    const std::string digits = std::to_string(number);
    return std::string(labelWidth - digits.size(), ' ') + digits;
  };
  std::string text = textOf(choice) + ":\n";
  for (const std::string& line : linesOf(choice, labelOf, width)) text += line + "\n";
  text += "Which one? 1-" + std::to_string(count) + (takesOneKey ? "" : " and Enter") + ", Esc for nobody: ";
  write(terminalText(text));
  const auto digits = takesOneKey ? oneKey(write, readKey) : typedDigits(write, readKey);
  write("\n");
  const auto number = numberIn(digits.value_or(""));
  return number && *number <= count ? std::optional(*number - 1) : std::nullopt;
}

std::size_t chosenOf(const Choice& choice, bool mayAsk) {
  if (!mayAsk || ::isatty(STDIN_FILENO) != 1 || ::isatty(STDERR_FILENO) != 1) throw AmbiguousError(choice);
  Keyboard keyboard;
  const auto chosen = askFor(choice, errorWidth(), writeErrorText, [&] { return keyboard.readKey(); });
  if (!chosen) throw CommandError("nobody was chosen");
  return *chosen;
}

std::optional<NumberedWho> numberedWho(const std::string& text) {
  const auto sign = text.rfind('#');
  if (sign == std::string::npos || sign == 0) return std::nullopt;
  const auto number = numberIn(std::string_view(text).substr(sign + 1));
  return number ? std::optional(NumberedWho{text.substr(0, sign), *number}) : std::nullopt;
}

std::optional<std::size_t> indexOf(const NumberedWho& numbered, std::size_t count) {
  const auto& [who, number] = numbered;
  if (count == 0 || (count == 1 && isPlainDestination(who + "#" + std::to_string(number)))) return std::nullopt;
  if (number <= count) return number - 1;
  throw CommandError("there is no " + printable(who) + "#" + std::to_string(number) + ": " + inQuotes(who) + " fits " +
                     (count == 1 ? "one" : std::to_string(count)));
}

}  // namespace pellor::cli
