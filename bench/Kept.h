// What is costly to make is made once a program and size, and kept for all rounds.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace pellor::bench {

namespace detail {
inline std::vector<std::function<void()>> keptThings;
}

/// The T of that size, constructed from it and `more` at the first call.
template <class T, class... More>
T& kept(std::size_t size, More&... more) {
  static std::map<std::size_t, std::unique_ptr<T>> things;
  auto& thing = things[size];
  if (!thing) {
    thing = std::make_unique<T>(size, more...);
    detail::keptThings.push_back([&thing] { thing.reset(); });
  }
  return *thing;
}

/// Ends all of them, last made first. Called by main before it returns.
inline void dropKept() {
  while (!detail::keptThings.empty()) {
    detail::keptThings.back()();
    detail::keptThings.pop_back();
  }
}

}  // namespace pellor::bench
