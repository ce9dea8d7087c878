// An edit of a race: what one command, or one process with the library, asks for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
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

/// Makes edits on a list at random. About every second one concerns what the first one concerns.
class RaceEditMaker {
 public:
  RaceEditMaker(std::uint64_t seed, const RaceList& list, std::vector<std::string> newcomers);

  RaceEdit make(RaceEditKind kind);

 private:
  std::size_t below(std::size_t end);
  const std::string& oneOf(const std::vector<std::string>& choices) { return choices[below(choices.size())]; }
  std::string anybody();
  std::string newcomer();
  RacePlace place(bool isTaken, const std::string& mover);
  std::optional<std::string> newText(const std::string& suffix);
  RaceEdit random(RaceEditKind kind);

  std::mt19937_64 _random;
  const RaceList& _list;
  const std::vector<std::string> _newcomers;
  std::vector<std::string> _friends;
  std::optional<RaceEdit> _first;
  int _made = 0;
};

}  // namespace pellor
