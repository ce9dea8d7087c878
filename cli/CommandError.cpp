#include "cli/CommandError.h"
#include "cli/Output.h"

#include <algorithm>
#include <cstddef>

namespace pellor::cli {
namespace {

constexpr std::size_t MostCandidates = 10;

std::string listed(const std::vector<std::string>& candidates) {
  std::string text;
  const std::size_t shown = std::min(candidates.size(), MostCandidates);
  for (std::size_t index = 0; index < shown; ++index) text += (index == 0 ? "" : ", ") + candidates[index];
  if (candidates.size() > shown) text += " and " + std::to_string(candidates.size() - shown) + " more";
  return text;
}

}  // namespace

AmbiguousError::AmbiguousError(const std::string& who, const std::vector<std::string>& candidates)
    : CommandError(inQuotes(who) + " fits several: " + listed(candidates), candidates) {}

}  // namespace pellor::cli
