// What somebody meant who mistyped a word.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace pellor::cli {

/// The known word that is nearest to `typed`, by letters that are wrong, missing, too many or exchanged with their
/// neighbours; the first of several. Absent when all differ by more than a third of their letters. Bytes are compared.
std::optional<std::string> nearestWord(std::string_view typed, std::span<const std::string> known);

}  // namespace pellor::cli
