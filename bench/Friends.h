// Made-up people: as many as are asked for, and these very ones each time.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pellor/runtime/Value.h"

namespace pellor::bench {

/// 2.5 destinations on average, half of them phone numbers, all in canonical form.
struct Person {
  std::string guid;  ///< 36 characters
  std::string name;  ///< in several scripts
  std::vector<std::string> phones;
  std::vector<std::string> addresses;
};

/// The person with that number. No two share a GUID or a destination.
Person personAt(std::size_t number);

/// A phone number as somebody would write it down, another one for each `number` below 10,000,000; nobody's.
std::string writtenPhoneNumber(std::size_t number);

/// The contacts database that the people belong to.
inline constexpr const char* DatabaseUID = "6D4C1A02-7B0E-4C55-9D53-0E8B5A9B1C11";

/// The stored form of a friend.
Dictionary storedForm(const Person& person, std::size_t number);

/// The stored form of the list of the people from `first` on, without gaps.
Array storedList(std::size_t first, std::size_t count);

/// The person's card, for a contacts folder.
std::string cardOf(const Person& person);

}  // namespace pellor::bench
