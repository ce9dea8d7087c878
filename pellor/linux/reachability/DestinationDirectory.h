// A directory that says which destinations can be reached: usually a server, far away.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <set>
#include <string>

#include "pellor/platform/ReachabilityService.h"

namespace pellor {

/// Asked by one thread, one question at a time; only `cancel`, `name` and `account` may be called beside. Calls block
/// until the directory has answered, or it is clear that it does not: about 12 seconds at most.
class DestinationDirectory {
 public:
  struct Answer {
    DestinationStatuses statuses;        ///< by identifier; one that is missing could not be told
    std::string problem;                 ///< why the directory could not be asked; empty when it could
    std::chrono::milliseconds pause{0};  ///< how long it wishes not to be asked again; with a problem alone
    /// For how long the statuses need not be asked for again, as the directory says; absent: it says nothing.
    std::optional<std::chrono::seconds> lifetime = std::nullopt;
  };
  /// Whether the directory works, for a user. The text holds no address, name or secret.
  struct State {
    bool answers = false;  ///< it answered, with the same credentials and settings as for a query
    std::string text;      ///< what it is and its version, or what is wrong and what to do about it
  };

  virtual ~DestinationDirectory() = default;

  /// What it is called in a sentence.
  virtual std::string name() const = 0;
  /// All that its answers depend on, without a secret: answers that one account gave are none of another one's.
  virtual std::string account() const = 0;
  /// The most identifiers that one query may hold.
  virtual std::size_t largestQuery() const = 0;
  /// Whether it could know an identifier ("tel:..." or "mailto:...", in normalised form) at all, as it may not know a
  /// number that only works in one country.
  virtual bool couldKnow(const std::string& identifier) const = 0;
  /// Which of these identifiers can be reached. There is at least one, and it could know all of them.
  virtual Answer lookUp(const std::set<std::string>& identifiers) = 0;
  virtual State state() = 0;
  /// Lets the query that is under way, and every later one, end at once with a problem.
  virtual void cancel() = 0;
};

}  // namespace pellor
