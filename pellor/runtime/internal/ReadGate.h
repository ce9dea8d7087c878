// The readers of a concurrent queue, counted so that one who finds the queue idle comes and goes without a lock.
#pragma once

#include <atomic>
#include <cstddef>

namespace pellor {

/// One word: how many readers are inside, and whether the gate is shut because something waits or a barrier runs. The
/// queue shuts and opens it under its lock; while it is shut only the holder of the lock lets readers in.
///
/// What a barrier wrote is seen by readers: `open` releases it, and whoever enters acquires. What a reader read, it
/// read before the next barrier began: leaving releases, and `isEmpty` acquires. All changes are read-modify-writes of
/// the one word, so each of them hands on what those before it released, and either the leaving reader sees that the
/// gate was shut or who shut it sees that the reader has left.
class ReadGate {
 public:
  /// Enters unless the gate is shut. Any thread, without the lock.
  bool tryEnter() {
    std::size_t state = _state.load(std::memory_order_relaxed);
    while (!(state & shutBit)) {
      if (_state.compare_exchange_weak(state, state + oneReader, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return true;
      }
    }
    return false;
  }
  /// Lets a reader in, shut or not. With the queue's lock, and no barrier running.
  void enter() { _state.fetch_add(oneReader, std::memory_order_acquire); }
  /// Leaves. Whether the gate is shut and this was the last reader: then the queue has to look what may start. Any
  /// thread, without the lock.
  [[nodiscard]] bool leave() { return _state.fetch_sub(oneReader, std::memory_order_release) == (oneReader | shutBit); }

  /// With the queue's lock.
  void shut() {
    if (!isShut()) _state.fetch_or(shutBit, std::memory_order_relaxed);
  }
  void open() {
    if (isShut()) _state.fetch_and(~shutBit, std::memory_order_release);
  }
  /// Whether no reader is inside. While the gate is shut it stays so, but for `enter`.
  bool isEmpty() const { return _state.load(std::memory_order_acquire) < oneReader; }

 private:
  static constexpr std::size_t shutBit = 1;
  static constexpr std::size_t oneReader = 2;

  bool isShut() const { return _state.load(std::memory_order_relaxed) & shutBit; }

  std::atomic<std::size_t> _state = 0;  // changed on any thread
};

}  // namespace pellor
