// An edit of a race: what one command, or one process with the library, asks for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/e2e/RaceList.h"

namespace pellor {

enum class RaceEditKind { add, remove, move, swap, title, purge, replyAs, meta, refresh };

inline constexpr std::array RaceEditKinds = {RaceEditKind::add,     RaceEditKind::remove, RaceEditKind::move,
                                             RaceEditKind::swap,    RaceEditKind::title,  RaceEditKind::purge,
                                             RaceEditKind::replyAs, RaceEditKind::meta,   RaceEditKind::refresh};

std::string_view nameOf(RaceEditKind kind);

struct RaceEdit {
  RaceEditKind kind = RaceEditKind::refresh;
  std::string who;                  ///< the key of the friend, or of the person to add
  RacePlace place;                  ///< of a move or swap; of a title only the page counts
  std::string key;                  ///< of metadata
  std::optional<std::string> text;  ///< title, reply address or metadata value; absent: cleared
};

/// The arguments that make `pellor` do it. The process with the library takes the same.
std::vector<std::string> argumentsOf(const RaceEdit& edit);
/// The same on one line, for people.
std::string textOf(const RaceEdit& edit);

/// Edits of these kinds on a list, at random. About every second one concerns what the first one concerns.
std::vector<RaceEdit> randomEdits(std::uint64_t seed, const RaceList& list, const std::vector<std::string>& newcomers,
                                  const std::vector<RaceEditKind>& kinds);

}  // namespace pellor
