#include "pellor/linux/matrix/MatrixAddress.h"

#include <nettle/base64.h>
#include <nettle/sha2.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "pellor/linux/text/CardText.h"

namespace pellor {
namespace {

constexpr std::string_view PhoneScheme = "tel:";
constexpr std::string_view EmailScheme = "mailto:";

bool isDigit(char character) { return character >= '0' && character <= '9'; }
bool isVisibleAscii(char character) { return character > ' ' && character < 0x7F; }

std::optional<MatrixAddress> phoneAddress(std::string_view number) {
  if (!number.starts_with('+') || number.size() == 1) return std::nullopt;
  number.remove_prefix(1);
  if (!std::ranges::all_of(number, isDigit)) return std::nullopt;
  return MatrixAddress{std::string(number), "msisdn"};
}

std::optional<MatrixAddress> emailAddress(std::string_view address) {
  if (address.find('@') == std::string_view::npos || !std::ranges::all_of(address, isVisibleAscii)) return std::nullopt;
  return MatrixAddress{lowerCased(address), "email"};
}

std::array<std::uint8_t, SHA256_DIGEST_SIZE> sha256(const std::string& text) {
  const std::basic_string<std::uint8_t> bytes(text.begin(), text.end());
  sha256_ctx context;
  sha256_init(&context);
  sha256_update(&context, bytes.size(), bytes.data());
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  return digest;
}

}  // namespace

std::optional<MatrixAddress> matrixAddressOf(std::string_view identifier) {
  if (identifier.starts_with(PhoneScheme)) return phoneAddress(identifier.substr(PhoneScheme.size()));
  if (identifier.starts_with(EmailScheme)) return emailAddress(identifier.substr(EmailScheme.size()));
  return std::nullopt;
}

std::string plainMatrixAddress(const MatrixAddress& address) { return address.address + " " + address.medium; }

std::string hashedMatrixAddress(const MatrixAddress& address, std::string_view pepper) {
  const auto digest = sha256(plainMatrixAddress(address).append(" ").append(pepper));
  base64_encode_ctx context;
  base64url_encode_init(&context);
  std::array<char, BASE64_ENCODE_LENGTH(SHA256_DIGEST_SIZE) + BASE64_ENCODE_FINAL_LENGTH> text{};
  std::size_t length = base64_encode_update(&context, text.data(), digest.size(), digest.data());
  length += base64_encode_final(&context, text.data() + length);
  const std::string_view padded(text.data(), length);
  return std::string(padded.substr(0, padded.find('=')));
}

}  // namespace pellor
