// Digests over bytes.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace pellor {

/// Any thread; pure.
class DigestService {
 public:
  virtual ~DigestService() = default;
  virtual std::array<std::uint8_t, 20> sha1(std::span<const std::uint8_t> bytes) = 0;
};

}  // namespace pellor
