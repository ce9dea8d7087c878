// Who was first: a writing, or the patience of its caller.
#pragma once

#include <atomic>

namespace pellor {

/// Whether a writing goes out or its caller stops waiting for it: whichever comes first. Any thread.
class Commitment {
 public:
  /// For the writer, before it sends what cannot be taken back. False: nobody waits any more, so it must not.
  bool begin() { return decide(State::begun); }
  /// For the caller. False: it may be written, or may have been.
  bool preclude() { return decide(State::precluded); }

 private:
  enum class State { open, begun, precluded };

  bool decide(State state) {
    State expected = State::open;
    return _state.compare_exchange_strong(expected, state);
  }

  std::atomic<State> _state = State::open;
};

}  // namespace pellor
