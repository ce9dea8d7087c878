#include "tests/e2e/RaceResults.h"

#include <array>
#include <functional>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace pellor {
namespace {

constexpr int FirstColumn = 20;
constexpr int OtherColumns = 9;

using Row = std::pair<std::string, RaceCounts>;

void writeRow(std::ostream& out, const std::string& name, const std::array<std::string, 5>& cells, bool isMarkdown) {
  if (isMarkdown) {
    out << "| " << name << " |";
    for (const std::string& cell : cells) out << ' ' << cell << " |";
  } else {
    out << std::left << std::setw(FirstColumn) << name << std::right;
    for (const std::string& cell : cells) out << std::setw(OtherColumns) << cell;
  }
  out << '\n';
}

void writeTable(std::ostream& out, const std::string& what, const std::vector<Row>& rows, bool isMarkdown) {
  writeRow(out, what, {"races", "lost", "doubled", "torn", "refused"}, isMarkdown);
  if (isMarkdown) out << "| --- | ---: | ---: | ---: | ---: | ---: |\n";
  RaceCounts all;
  const auto write = [&](const std::string& name, const RaceCounts& counts) {
    writeRow(out, name,
             {std::to_string(counts.races), std::to_string(counts.lost), std::to_string(counts.doubled),
              std::to_string(counts.torn), std::to_string(counts.refused)},
             isMarkdown);
  };
  for (const auto& [name, counts] : rows) {
    write(name, counts);
    all += counts;
  }
  write("all", all);
}

std::string commented(const std::string& text) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) result += "# " + line + "\n";
  return result;
}

// What was appended to the file after its last whole line would otherwise be read as another number.
void dropUnfinishedLine(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(stream), {}};
  if (!content.empty() && content.back() != '\n') std::filesystem::resize_file(file, content.rfind('\n') + 1);
}

}  // namespace

RaceCounts& RaceCounts::operator+=(const RaceCounts& other) {
  races += other.races;
  lost += other.lost;
  doubled += other.doubled;
  torn += other.torn;
  refused += other.refused;
  return *this;
}

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
    RaceCounts counts{1, 0, 0, 0, 0};
    words >> key.first >> key.second >> number >> counts.lost >> counts.doubled >> counts.torn >> counts.refused;
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

RaceCounts RaceResults::total() const {
  RaceCounts all;
  for (const auto& [key, races] : _results) {
    for (const auto& [number, counts] : races) all += counts;
  }
  return all;
}

std::string RaceResults::tables(bool isMarkdown) const {
  const auto countsOf = [this](const std::function<bool(const Key&)>& isWanted) {
    RaceCounts sum;
    for (const auto& [key, races] : _results) {
      for (const auto& [number, counts] : races) {
        if (isWanted(key)) sum += counts;
      }
    }
    return sum;
  };
  std::vector<Row> pairs, modes;
  for (const RacePair& pair : racePairs()) {
    const std::string name = nameOf(pair);
    pairs.emplace_back(name, countsOf([&](const Key& key) { return key.second == name; }));
  }
  for (const RaceMode mode : RaceModes) {
    const std::string name(nameOf(mode));
    modes.emplace_back(name, countsOf([&](const Key& key) { return key.first == name; }));
  }
  std::ostringstream out;
  writeTable(out, "pair", pairs, isMarkdown);
  out << '\n';
  writeTable(out, "mode", modes, isMarkdown);
  return out.str();
}

}  // namespace pellor
