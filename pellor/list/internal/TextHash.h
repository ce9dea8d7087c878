// A short number for texts.
#pragma once

#include <cstdint>
#include <string_view>

namespace pellor {

/// A number that is equal in all processes and on all machines for equal texts, and seldom for others.
class TextHash {
 public:
  TextHash& add(std::string_view text) {
    constexpr std::uint32_t prime = 16777619U;
    for (const char byte : text) _value = (_value ^ static_cast<unsigned char>(byte)) * prime;
    return *this;
  }
  std::uint32_t value() const { return _value; }

 private:
  std::uint32_t _value = 2166136261U;
};

}  // namespace pellor
