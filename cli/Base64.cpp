#include "cli/Base64.h"

#include <nettle/base64.h>

#include <cstddef>
#include <utility>

namespace pellor::cli {

std::string base64(const Data& data) {
  std::string text(BASE64_ENCODE_RAW_LENGTH(data.size()), '\0');
  base64_encode_raw(text.data(), data.size(), data.data());
  return text;
}

std::optional<Data> base64Decoded(std::string_view text) {
  base64_decode_ctx context;
  base64_decode_init(&context);
  Data data(BASE64_DECODE_LENGTH(text.size()));
  std::size_t size = data.size();
  if (base64_decode_update(&context, &size, data.data(), text.size(), text.data()) != 1) return std::nullopt;
  data.resize(size);
  // Blanks, padding that lacks, and bits that no byte has.
  return base64(data) == text ? std::optional(std::move(data)) : std::nullopt;
}

}  // namespace pellor::cli
