// Private keys, certificate requests and certificates, as PEM texts, over OpenSSL.
#pragma once

#include <string>

namespace pellor {

/// A new private key (P-256). Throws DeviceError.
std::string makePrivateKey();

/// A request, signed with the key, for a certificate with that common name. Throws DeviceError.
std::string makeCertificateRequest(const std::string& privateKey, const std::string& commonName);

/// The common name of a certificate that fits the key and was issued by one of those authorities. Throws DeviceError
/// with what is wrong about it. A certificate that has expired is not refused here: the broker does that, and says so.
std::string checkedCommonName(const std::string& certificate, const std::string& privateKey,
                              const std::string& authorities);

/// The common name of a request; throws DeviceError when it is none.
std::string commonNameOfRequest(const std::string& request);

}  // namespace pellor
