// Addresses as Matrix identity services know them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pellor {

/// A phone number or an e-mail address: "4915123456789", "msisdn"; "alice@example.org", "email".
struct MatrixAddress {
  std::string address;
  std::string medium;
};

/// That of an identifier ("tel:..." or "mailto:..."); absent where there is none: a number that is not written for all
/// countries or has an extension, an address without "@" or with other characters than those of ASCII, whose lower
/// case could differ from the one that the service takes.
std::optional<MatrixAddress> matrixAddressOf(std::string_view identifier);

/// What is sent in place of the address: SHA-256 of it with its medium and the service's pepper, in unpadded URL-safe
/// base64.
std::string hashedMatrixAddress(const MatrixAddress& address, std::string_view pepper);

/// What is sent where addresses are not hashed.
std::string plainMatrixAddress(const MatrixAddress& address);

}  // namespace pellor
