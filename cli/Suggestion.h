// What somebody meant who mistyped a word.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace pellor::cli {

/// ": did you mean add?" with the known word that is nearest to `typed`, by letters that are wrong, missing, too many
/// or exchanged with their neighbours; of several the first one. `otherwise` when all differ by more than a third of
/// their letters. Bytes are compared.
std::string didYouMean(std::string_view typed, std::span<const std::string> known, const std::string& otherwise);

/// ": did you mean Zoë?" with a name that was found to be nearest; empty for an empty name.
std::string didYouMean(const std::string& meant);

}  // namespace pellor::cli
