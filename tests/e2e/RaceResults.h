// What became of many races, kept in a file so that a run goes on where the last one stopped.
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "tests/e2e/Race.h"

namespace pellor {

struct RaceCounts {
  int races = 0;
  int lost = 0;
  int doubled = 0;
  int torn = 0;
  int refused = 0;

  int faults() const { return lost + doubled + torn + refused; }
  RaceCounts& operator+=(const RaceCounts& other);
};

/// The file begins with the build. Then it has a line for each race and, behind a #, the stories of those with faults.
class RaceResults {
 public:
  /// Reads what the file has; a last line that was cut off is dropped. One that is missing, or of another build (see
  /// RaceTrack), is begun anew. Throws std::runtime_error where it cannot be written.
  RaceResults(const std::filesystem::path& file, const std::string& build);

  bool has(const RaceId& race) const;
  void add(const RaceId& race, const RaceResult& result);

  /// A table of the pairs over all modes, and one of the modes.
  std::string text() const { return tables(false); }
  std::string markdown() const { return tables(true); }
  RaceCounts total() const;

 private:
  using Key = std::pair<std::string, std::string>;  // mode and pair

  void read(std::istream& lines);
  std::string tables(bool isMarkdown) const;

  std::map<Key, std::map<int, RaceCounts>> _results;
  std::ofstream _file;
};

}  // namespace pellor
