#include "pellor/runtime/internal/ReadyStrands.h"

#include <algorithm>
#include <utility>

namespace pellor {

void ReadyStrands::add(std::shared_ptr<Strand> strand, double now) {
  Line& line = strand->qualityOfService() == QualityOfService::utility ? _utility : _default;
  line.push_back({std::move(strand), now});
}

std::shared_ptr<Strand> ReadyStrands::take(double now) {
  Line& line = nextLine(now);
  auto strand = std::move(line.front().strand);
  line.pop_front();
  return strand;
}

ReadyStrands::Line& ReadyStrands::nextLine(double now) {
  if (_default.empty()) return _utility;
  const bool isOverdue = !_utility.empty() && now - _utility.front().since >= LongestWait;
  return isOverdue ? _utility : _default;
}

std::vector<std::shared_ptr<Strand>> ReadyStrands::takeAllOf(const Process& process) {
  std::vector<std::shared_ptr<Strand>> taken;
  for (Line* line : {&_default, &_utility}) moveAllOf(process, *line, taken);
  return taken;
}

void ReadyStrands::moveAllOf(const Process& process, Line& line, std::vector<std::shared_ptr<Strand>>& taken) {
  const auto ofProcess =
      std::ranges::stable_partition(line, [&](const Entry& waiting) { return waiting.strand->owner() != &process; });
  for (Entry& waiting : ofProcess) taken.push_back(std::move(waiting.strand));
  line.erase(ofProcess.begin(), ofProcess.end());
}

}  // namespace pellor
