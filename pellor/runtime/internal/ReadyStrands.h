// The strands that wait for a worker, in the order in which workers take them.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include "pellor/runtime/Strand.h"

namespace pellor {

/// Strands of the default quality of service come before those of utility, which are passed over for a limited time;
/// strands of one quality come in the order in which they were added. Guarded by its owner's lock.
class ReadyStrands {
 public:
  /// How many seconds a utility strand waits behind default ones.
  static constexpr double LongestWait = 0.05;

  bool isEmpty() const { return size() == 0; }
  std::size_t size() const { return _default.size() + _utility.size(); }

  /// `now`, here and in `take`: seconds of one steady clock.
  void add(std::shared_ptr<Strand> strand, double now);
  /// Takes the next one. There is one.
  std::shared_ptr<Strand> take(double now);
  /// Takes all those of a process out, for the caller to destroy without the lock.
  std::vector<std::shared_ptr<Strand>> takeAllOf(const Process& process);

 private:
  struct Entry {
    std::shared_ptr<Strand> strand;
    double since = 0;
  };
  using Line = std::deque<Entry>;

  static void moveAllOf(const Process& process, Line& line, std::vector<std::shared_ptr<Strand>>& taken);
  Line& nextLine(double now);

  Line _default;
  Line _utility;
};

}  // namespace pellor
