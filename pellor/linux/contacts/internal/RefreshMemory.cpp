#include "pellor/linux/contacts/internal/RefreshMemory.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <utility>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {
namespace {

constexpr std::size_t LargestFile = 4096;
// Far beyond every clock, and still exact as a number.
constexpr double LatestTime = 1e12;

std::string withCheck(const std::string& fields) { return fields + " " + std::to_string(contentHash(fields)) + "\n"; }

std::string wholeSeconds(double time) {
  return std::to_string(static_cast<std::int64_t>(std::floor(std::clamp(time, -LatestTime, LatestTime))));
}

// "1 CARDS REFRESHED FALL CHECK", in which the fall is "-" when there is none. The first number is that of the form.
std::string textOf(const RefreshHold::Memory& memory) {
  return withCheck("1 " + std::to_string(memory.cards) + " " + wholeSeconds(memory.refreshed) + " " +
                   (memory.fallSeen ? wholeSeconds(*memory.fallSeen) : "-"));
}

std::optional<RefreshHold::Memory> memoryIn(const std::string& text) {
  const auto end = text.rfind(' ');
  if (end == std::string::npos || text != withCheck(text.substr(0, end))) return std::nullopt;
  std::istringstream fields(text);
  std::int64_t form = 0, refreshed = 0;
  RefreshHold::Memory memory;
  std::string fall;
  if (!(fields >> form >> memory.cards >> refreshed >> fall) || form != 1) return std::nullopt;
  memory.refreshed = static_cast<double>(refreshed);
  if (fall == "-") return memory;
  std::int64_t fallSeen = 0;
  if (!(std::istringstream(fall) >> fallSeen)) return std::nullopt;
  memory.fallSeen = static_cast<double>(fallSeen);
  return memory;
}

}  // namespace

RefreshMemory::RefreshMemory(const std::filesystem::path& dataFolder, std::string_view source, LogHandle log)
    : _file(dataFolder / ("refreshed-" + fileNameOf(source))), _log(std::move(log)) {}

std::optional<RefreshHold::Memory> RefreshMemory::read() {
  if (!_problem.empty()) return _known;
  const FileContent content = PrivateFile(_file).read(LargestFile);
  return _known = content.text ? memoryIn(*content.text) : std::nullopt;
}

void RefreshMemory::write(const std::optional<RefreshHold::Memory>& memory) {
  if (!memory || (memory == _known && _problem.empty())) return;
  _known = memory;
  auto problem = PrivateFolder(_file.parent_path()).make();
  if (!problem) problem = PrivateFile(_file).replace(textOf(*memory));
  if (problem && _problem.empty()) _log.log("how many contacts there were cannot be kept: %@", *problem);
  _problem = problem.value_or("");
}

}  // namespace pellor
