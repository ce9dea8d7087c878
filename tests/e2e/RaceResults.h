// What became of many races, kept in a file so that a run goes on where the last one stopped.
#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "tests/e2e/Race.h"

namespace pellor {

/// The file begins with the build. Then it has a line for each race and, behind a #, the stories of those with faults.
class RaceResults {
 public:
  /// Reads what the file has; a last line that was cut off is dropped. One that is missing, or of another build (see
  /// RaceTrack), is begun anew. Throws std::runtime_error where it cannot be written.
  RaceResults(const std::filesystem::path& file, const std::string& build);

  bool has(const RaceId& race) const;
  void add(const RaceId& race, const RaceResult& result);

  bool haveFaults() const;
  /// A table of the modes, in Markdown.
  std::string text() const;

 private:
  using Counts = std::array<int, 5>;  // races, lost, doubled, torn, refused

  void note(const std::string& line);

  std::set<std::string> _races;
  std::map<std::string, Counts> _modes;
  std::ofstream _file;
};

}  // namespace pellor
