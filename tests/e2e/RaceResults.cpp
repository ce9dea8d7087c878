#include "tests/e2e/RaceResults.h"

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace pellor {
namespace {

constexpr int FirstColumn = 20;
constexpr int OtherColumns = 8;

template <class Counts>
void writeRow(std::ostream& out, const std::string& name, const Counts& cells) {
  out << "| " << std::left << std::setw(FirstColumn) << name << std::right << " |";
  for (const auto& cell : cells) out << ' ' << std::setw(OtherColumns) << cell << " |";
  out << '\n';
}

template <class Counts>
void addTo(Counts& sum, const Counts& counts) {
  std::ranges::transform(sum, counts, sum.begin(), std::plus());
}

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

}  // namespace

RaceResults::RaceResults(const std::filesystem::path& file, const std::string& build) {
  dropUnfinishedLine(file);
  const std::string heading = "# build " + build;
  std::ifstream stream(file);
  std::string first;
  const bool goesOn = std::getline(stream, first) && first == heading;
  if (goesOn) read(stream);
  _file.open(file, goesOn ? std::ios::app : std::ios::trunc);
  if (!goesOn) _file << heading << std::endl;
  if (!_file) throw std::runtime_error("cannot write to " + file.string());
}

void RaceResults::read(std::istream& lines) {
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    Key key;
    int number = 0;
    Counts counts{1};
    words >> key.first >> key.second >> number >> counts[1] >> counts[2] >> counts[3] >> counts[4];
    if (!line.starts_with('#') && words) _results[key][number] = counts;
  }
}

bool RaceResults::has(const RaceId& race) const {
  const auto found = _results.find({std::string(nameOf(race.mode)), nameOf(race.pair)});
  return found != _results.end() && found->second.contains(race.number);
}

void RaceResults::add(const RaceId& race, const RaceResult& result) {
  const RaceVerdict& verdict = result.verdict;
  const Key key{std::string(nameOf(race.mode)), nameOf(race.pair)};
  _results[key][race.number] = {1, verdict.lost, verdict.doubled, verdict.torn, verdict.refused};
  if (verdict.faults() > 0) {
    _file << commented(result.story);
    for (const std::string& reason : verdict.reasons) _file << commented(reason);
  }
  _file << key.first << ' ' << key.second << ' ' << race.number << ' ' << verdict.lost << ' ' << verdict.doubled << ' '
        << verdict.torn << ' ' << verdict.refused << std::endl;
}

bool RaceResults::haveFaults() const {
  return std::ranges::any_of(_results, [](const auto& races) {
    return std::ranges::any_of(races.second, [](const auto& race) { return race.second != Counts{1}; });
  });
}

std::string RaceResults::text() const {
  std::map<std::string, Counts> pairs, modes;
  for (const auto& [key, races] : _results) {
    for (const auto& [number, counts] : races) {
      addTo(modes[key.first], counts);
      addTo(pairs[key.second], counts);
    }
  }
  std::ostringstream out;
  writeTable(out, "pair", pairs);
  out << '\n';
  writeTable(out, "mode", modes);
  return out.str();
}

void RaceResults::writeTable(std::ostream& out, const std::string& what, const std::map<std::string, Counts>& rows) {
  writeRow(out, what, std::array{"races", "lost", "doubled", "torn", "refused"});
  out << "| --- | ---: | ---: | ---: | ---: | ---: |\n";
  Counts all{};
  for (const auto& [name, counts] : rows) {
    writeRow(out, name, counts);
    addTo(all, counts);
  }
  writeRow(out, "all", all);
}

}  // namespace pellor
