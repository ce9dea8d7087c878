#include "pellor/linux/mosquitto/Certificates.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

#include "pellor/linux/mosquitto/DeviceError.h"

namespace pellor {
namespace {

template <auto free>
struct Deleter {
  template <class T>
  void operator()(T* object) const {
    free(object);
  }
};
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using PrivateKey = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Request = std::unique_ptr<X509_REQ, Deleter<X509_REQ_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;

template <class T>
T required(T object, const char* problem) {
  ERR_clear_error();
  if (!object) throw DeviceError(problem);
  return object;
}

Bio memory(const std::string& text) {
  return required(Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))), "no memory");
}

std::string textIn(const Bio& bio) {
  char* bytes = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &bytes);
  return {bytes, static_cast<std::size_t>(length)};
}

// A key that is locked by a passphrase is refused instead of asking for it on the terminal.
int noPassphrase(char* /*buffer*/, int /*size*/, int /*isForWriting*/, void* /*context*/) { return -1; }

PrivateKey privateKeyOf(const std::string& text) {
  return required(PrivateKey(PEM_read_bio_PrivateKey(memory(text).get(), nullptr, noPassphrase, nullptr)),
                  "the private key cannot be read");
}

Certificate nextCertificate(const Bio& texts) {
  return Certificate(PEM_read_bio_X509(texts.get(), nullptr, noPassphrase, nullptr));
}

std::string commonNameIn(X509_NAME* name) {
  const int index = X509_NAME_get_index_by_NID(name, NID_commonName, -1);
  if (index < 0) return {};
  unsigned char* text = nullptr;
  const int length = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
  if (length < 0) return {};
  std::string result(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
  OPENSSL_free(text);
  return result;
}

bool isIssuedBy(X509* certificate, X509* authority) {
  EVP_PKEY* key = X509_get0_pubkey(authority);
  return key && X509_check_issued(authority, certificate) == X509_V_OK && X509_verify(certificate, key) == 1;
}

bool isIssuedByOneOf(X509* certificate, const std::string& authorities) {
  const Bio texts = memory(authorities);
  while (const Certificate authority = nextCertificate(texts)) {
    if (isIssuedBy(certificate, authority.get())) return true;
  }
  return false;
}

}  // namespace

std::string makePrivateKey() {
  const PrivateKey key = required(PrivateKey(EVP_EC_gen("P-256")), "no private key could be made");
  const Bio text = required(Bio(BIO_new(BIO_s_mem())), "no memory");
  if (PEM_write_bio_PrivateKey(text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1) {
    throw DeviceError("the private key could not be written");
  }
  return textIn(text);
}

std::string makeCertificateRequest(const std::string& privateKey, const std::string& commonName) {
  const PrivateKey key = privateKeyOf(privateKey);
  const Request request = required(Request(X509_REQ_new()), "no memory");
  const Bio text = required(Bio(BIO_new(BIO_s_mem())), "no memory");
  const auto* name = reinterpret_cast<const unsigned char*>(commonName.c_str());
  const bool isMade =
      X509_NAME_add_entry_by_NID(X509_REQ_get_subject_name(request.get()), NID_commonName, MBSTRING_UTF8, name,
                                 static_cast<int>(commonName.size()), -1, 0) == 1 &&
      X509_REQ_set_pubkey(request.get(), key.get()) == 1 && X509_REQ_sign(request.get(), key.get(), EVP_sha256()) > 0 &&
      PEM_write_bio_X509_REQ(text.get(), request.get()) == 1;
  ERR_clear_error();
  if (!isMade) throw DeviceError("the certificate request could not be made");
  return textIn(text);
}

std::string checkedCommonName(const std::string& certificate, const std::string& privateKey,
                              const std::string& authorities) {
  const Certificate own = required(nextCertificate(memory(certificate)), "the certificate cannot be read");
  const bool fits = X509_check_private_key(own.get(), privateKeyOf(privateKey).get()) == 1;
  const bool isIssued = isIssuedByOneOf(own.get(), authorities);
  ERR_clear_error();
  if (!fits) throw DeviceError("the certificate was issued for another private key");
  if (!isIssued) throw DeviceError("the certificate was not issued by the authority that was given with it");
  return commonNameIn(X509_get_subject_name(own.get()));
}

std::string commonNameOfRequest(const std::string& request) {
  const Request read(PEM_read_bio_X509_REQ(memory(request).get(), nullptr, noPassphrase, nullptr));
  if (!read) throw DeviceError("the certificate request cannot be read");
  return commonNameIn(X509_REQ_get_subject_name(read.get()));
}

}  // namespace pellor
