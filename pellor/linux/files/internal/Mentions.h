// Whether bytes of any kind tell of a person.
#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/platform/PersonalTraces.h"

namespace pellor {

/// The texts by which a person is found in files that nobody can decode any more: numbers and addresses wherever they
/// stand; names, GUIDs and short numbers, which may be parts of other texts, where they are a whole text of CBOR. Any
/// thread.
class Mentions {
 public:
  explicit Mentions(const ForgottenTraits& person);

  bool areIn(std::string_view bytes) const;
  /// Whether the whole text is one of the person's, or its digits end as one of the person's numbers does, however that
  /// is written.
  bool areTheText(std::string_view text) const;

 private:
  void add(const std::set<std::string>& texts, std::size_t shortest);

  std::set<std::string, std::less<>> _texts;
  std::vector<std::string> _patterns;
  std::vector<std::string> _digits;  // the last ones of each number
};

}  // namespace pellor
