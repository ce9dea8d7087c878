// Lists that go into a query as one parameter, for SQLite's json_each.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace pellor {

/// Texts with control characters, which no card has, are left out.
std::string jsonOfTexts(std::span<const std::string_view> texts);
std::string jsonOfNumbers(std::span<const std::int32_t> numbers);
std::string jsonOfNumbers(std::span<const std::int64_t> numbers);

}  // namespace pellor
