#include "pellor/list/internal/StepId.h"

#include <string_view>

#include "pellor/runtime/CBOR.h"

namespace pellor {
namespace {

std::string textOf(std::uint64_t number) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (int shift = 60; shift >= 0; shift -= 4) text += digits[(number >> shift) & 15U];
  return text;
}

// FNV-1a; each start makes another function of it.
std::uint64_t hashOf(std::string_view bytes, std::uint64_t start) {
  constexpr std::uint64_t prime = 1099511628211U;
  std::uint64_t hash = start;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * prime;
  return hash;
}

}  // namespace

std::string stepIdOf(std::uint64_t first, std::uint64_t second) { return textOf(first) + textOf(second); }

std::string stepIdFrom(const Value& what) {
  constexpr std::uint64_t start = 14695981039346656037U;
  const auto encoded = encodeCBOR(what);
  const std::string bytes = encoded ? std::string(encoded->begin(), encoded->end()) : what.description();
  const std::uint64_t first = hashOf(bytes, start);
  return stepIdOf(first, hashOf(bytes, first));
}

}  // namespace pellor
