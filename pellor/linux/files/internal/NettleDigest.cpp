#include "pellor/linux/files/internal/NettleDigest.h"

#include <nettle/sha1.h>

namespace pellor {

std::array<std::uint8_t, 20> NettleDigest::sha1(std::span<const std::uint8_t> bytes) {
  static_assert(SHA1_DIGEST_SIZE == 20);
  sha1_ctx context;
  sha1_init(&context);
  sha1_update(&context, bytes.size(), bytes.data());
  std::array<std::uint8_t, 20> digest{};
  sha1_digest(&context, digest.size(), digest.data());
  return digest;
}

}  // namespace pellor
