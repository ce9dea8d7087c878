// Which page of one version of a list is which page of the next one.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace pellor {

/// What a page is known by.
struct MatchedPage {
  std::vector<const void*> friends;  ///< those on it
  std::string title;                 ///< empty without one
  const void* object = nullptr;      ///< that stands for the page at its index
};

/// For each page of `after`, in its order, the one of `before` that it is, if any: of all matchings that keep the order
/// the one with most friends, and then titles, in common; pages that have neither are matched between those as their
/// objects are, and where all between two are left as they stand. Costs as much as there are friends, times the
/// logarithm of the pages.
std::vector<std::optional<std::size_t>> matchedPages(const std::vector<MatchedPage>& before,
                                                     const std::vector<MatchedPage>& after);

}  // namespace pellor
