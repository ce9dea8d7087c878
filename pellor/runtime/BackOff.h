// Pauses that grow between attempts.
#pragma once

#include <chrono>

namespace pellor {

class Scheduler;

/// How long to wait before something that failed is tried again: longer from attempt to attempt, until one succeeds.
/// It keeps no time and waits for nothing. Not thread-safe.
class BackOff {
 public:
  /// In seconds.
  struct Pauses {
    double first;
    double longest;
    double factor = 2;  ///< of a pause to the one before it, 1 or more
  };

  /// With a scheduler each pause is a random part of what it would be, so that several callers that failed together do
  /// not try again together; the scheduler, which gives the random numbers, has to outlive it.
  explicit BackOff(const Pauses& pauses, Scheduler* jitter = nullptr);

  /// The pause before the next attempt, in seconds. The one after it is longer.
  double next();
  /// After a success: the next pause is the first again.
  void reset();

 private:
  Pauses _pauses;
  Scheduler* _jitter;
  double _next;
};

/// For waits without a `Timer`: the seconds on the steady clock.
std::chrono::steady_clock::duration steadyDuration(double seconds);

}  // namespace pellor
