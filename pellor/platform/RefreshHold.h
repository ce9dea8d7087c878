// When friends are not brought in step with contacts, because most of these are gone.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace pellor {

/// Contacts of which most are gone: a folder that is not mounted, an account that is signed out, a synchroniser that
/// begins anew.
struct ContactsFall {
  std::uint64_t before = 0;  ///< how many cards there were at the last refresh
  std::uint64_t now = 0;     ///< how many there are
  double secondsLeft = 0;    ///< until they count as gone for good, by the wall clock
};

/// The rule by which address books answer `contactsFall`. Refreshing is held back while there are fewer than half of
/// the cards of the last refresh, if there were 8 or more then, until half are there, the user accepts it, or a day has
/// passed since the fall was first seen. Cards are counted, not recognised: a synchroniser that gives all of them other
/// identifiers is followed. Times are of the wall clock, in seconds since 2001-01-01T00:00:00Z.
class RefreshHold {
 public:
  static constexpr std::uint64_t FewestCards = 8;
  static constexpr double LongestHold = 24.0 * 60 * 60;
  /// The time of the last refresh is kept to within so many seconds: refreshes that change nothing else are not worth a
  /// write each.
  static constexpr double TimeStep = 60.0 * 60;

  /// What an address book keeps for this, also over restarts.
  struct Memory {
    std::uint64_t cards = 0;  ///< at the last refresh, or when the user accepted them
    double refreshed = 0;     ///< when the last refresh ran
    std::optional<double> fallSeen;
    friend bool operator==(const Memory&, const Memory&) = default;
  };

  /// Without a memory nothing is held back.
  RefreshHold() = default;
  explicit RefreshHold(std::optional<Memory> memory) : _memory(memory) {}
  const std::optional<Memory>& memory() const { return _memory; }

  /// Whether a refresh has to wait now that there are so many cards. Begins and ends the day.
  std::optional<ContactsFall> look(std::uint64_t cards, double now) {
    if (!_memory) return std::nullopt;
    if (_memory->cards < FewestCards || cards >= _memory->cards - _memory->cards / 2) {
      _memory->fallSeen.reset();
      return std::nullopt;
    }
    // A clock that was set back makes no longer day.
    _memory->fallSeen = std::min(_memory->fallSeen.value_or(now), now);
    const double left = *_memory->fallSeen + LongestHold - now;
    if (left <= 0) return std::nullopt;
    return ContactsFall{_memory->cards, cards, left};
  }

  /// A refresh ran against so many cards.
  void noteRefresh(std::uint64_t cards, double now) {
    const bool isSame = _memory && _memory->cards == cards && !_memory->fallSeen;
    if (isSame && now >= _memory->refreshed && now - _memory->refreshed < TimeStep) return;
    _memory = Memory{cards, now, std::nullopt};
  }

  /// The user accepts that there are so many cards.
  void accept(std::uint64_t cards) {
    if (_memory) _memory = Memory{cards, _memory->refreshed, std::nullopt};
  }

 private:
  std::optional<Memory> _memory;
};

}  // namespace pellor
