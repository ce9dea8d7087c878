#include "pellor/linux/ldap/ServerCertificate.h"

#include <openssl/x509v3.h>

#include <memory>

namespace pellor {
namespace {

struct CertificateDeleter {
  void operator()(X509* certificate) const { X509_free(certificate); }
};

}  // namespace

bool isCertificateOf(const std::string& certificate, const std::string& host) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(certificate.data());
  const std::unique_ptr<X509, CertificateDeleter> read(
      d2i_X509(nullptr, &bytes, static_cast<long>(certificate.size())));
  if (!read) return false;
  return X509_check_host(read.get(), host.data(), host.size(), 0, nullptr) == 1 ||
         X509_check_ip_asc(read.get(), host.c_str(), 0) == 1;
}

}  // namespace pellor
