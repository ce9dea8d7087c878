#include "tests/e2e/RaceResults.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <stdexcept>

namespace pellor {
namespace {

std::string commented(const std::string& text) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) result += "# " + line + "\n";
  return result;
}

// What was appended to the file after its last whole line would otherwise be read as another number.
void dropUnfinishedLine(const std::filesystem::path& file) {
  const std::string content = contentOf(file);
  if (!content.empty() && content.back() != '\n') std::filesystem::resize_file(file, content.rfind('\n') + 1);
}

std::string textOf(const RaceId& race) {
  return std::string(nameOf(race.mode)) + ' ' + nameOf(race.pair) + ' ' + std::to_string(race.number);
}

}  // namespace

RaceResults::RaceResults(const std::filesystem::path& file, const std::string& build) {
  dropUnfinishedLine(file);
  const std::string heading = "# build " + build;
  std::ifstream stream(file);
  std::string line;
  const bool goesOn = std::getline(stream, line) && line == heading;
  while (goesOn && std::getline(stream, line)) note(line);
  _file.open(file, goesOn ? std::ios::app : std::ios::trunc);
  if (!goesOn) _file << heading << std::endl;
  if (!_file) throw std::runtime_error("cannot write to " + file.string());
}

void RaceResults::note(const std::string& line) {
  std::istringstream words(line);
  std::string mode, pair, number;
  Counts counts{1};
  words >> mode >> pair >> number >> counts[1] >> counts[2] >> counts[3] >> counts[4];
  if (line.starts_with('#') || !words || !_races.insert(mode + ' ' + pair + ' ' + number).second) return;
  Counts& sum = _modes[mode];
  std::ranges::transform(sum, counts, sum.begin(), std::plus());
}

bool RaceResults::has(const RaceId& race) const { return _races.contains(textOf(race)); }

void RaceResults::add(const RaceId& race, const RaceResult& result) {
  const RaceVerdict& verdict = result.verdict;
  if (verdict.faults() > 0) {
    _file << commented(result.story);
    for (const std::string& reason : verdict.reasons) _file << commented(reason);
  }
  std::ostringstream line;
  line << textOf(race) << ' ' << verdict.lost << ' ' << verdict.doubled << ' ' << verdict.torn << ' '
       << verdict.refused;
  note(line.str());
  _file << line.str() << std::endl;
}

bool RaceResults::haveFaults() const {
  return std::ranges::any_of(_modes, [](const auto& mode) { return mode.second != Counts{mode.second.front()}; });
}

std::string RaceResults::text() const {
  std::ostringstream out;
  out << "| mode | races | lost | doubled | torn | refused |\n| --- | ---: | ---: | ---: | ---: | ---: |\n";
  for (const auto& [mode, counts] : _modes) {
    out << "| " << mode << " |";
    for (const int count : counts) out << ' ' << count << " |";
    out << '\n';
  }
  return out.str();
}

}  // namespace pellor
