// What can be said of one part of the platform, for users in search of a fault.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace pellor {

/// How one part is at the moment.
struct ServiceReport {
  enum class State {
    works,
    fails,  ///< `detail` says why, `advice` what to do
    unused  ///< the configuration chooses none
  };
  State state = State::works;
  std::string detail;                  ///< what it is, with its version and what it serves; or why it fails. One line
  std::string advice;                  ///< what the user may do; empty when there is nothing to do. One line
  std::vector<std::string> remarks{};  ///< what else users may want to know, a line each

  static ServiceReport working(std::string detail) { return {State::works, std::move(detail), {}, {}}; }
  static ServiceReport failing(std::string reason, std::string advice) {
    return {State::fails, std::move(reason), std::move(advice), {}};
  }
  static ServiceReport none(std::string detail) { return {State::unused, std::move(detail), {}, {}}; }
};

}  // namespace pellor
