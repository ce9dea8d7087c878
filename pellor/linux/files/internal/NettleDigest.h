// SHA-1 by the Nettle library.
#pragma once

#include "pellor/platform/DigestService.h"

namespace pellor {

class NettleDigest final : public DigestService {
 public:
  std::array<std::uint8_t, 20> sha1(std::span<const std::uint8_t> bytes) override;
};

}  // namespace pellor
