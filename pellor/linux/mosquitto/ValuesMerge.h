// The merge of the values of two devices that were edited in parallel.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "pellor/runtime/Value.h"

namespace pellor {

/// Values of one domain that belong together, such as a list and its titles; a key that is not there has no value.
struct MergedValues {
  Dictionary values;
  std::size_t leftOut = 0;  ///< friends of `ours` for which there was no room
};

/// The edits of both, each of which made something else of `base`. Where they conflict one of the two is kept. A pure
/// function; any thread.
using ValuesMerge = std::function<MergedValues(const std::string& domain, const Dictionary& base,
                                               const Dictionary& theirs, const Dictionary& ours)>;

}  // namespace pellor
