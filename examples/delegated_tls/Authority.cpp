// Making certificates.
#include "Authority.h"

#include "Failure.h"

#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

constexpr long kLifetimeSeconds = 60L * 60;
constexpr int kSerialBits = 64;

void setName(X509_NAME *name, const char *commonName) {
  checked(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>(commonName), -1,
                                     -1, 0),
          "the certificate's name was refused");
}

void addExtension(X509 *certificate, X509 *issuer, int nid, const char *value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Handle<X509_EXTENSION, X509_EXTENSION_free> extension(
      checked(X509V3_EXT_conf_nid(nullptr, &context, nid, value), "a certificate extension was refused"));
  checked(X509_add_ext(certificate, extension.get(), -1), "out of memory");
}

void setSerial(X509 *certificate) {
  const BIGNUMPtr serial(checked(BN_new(), "out of memory"));
  checked(BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY), "no random numbers");
  BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate));
}

X509Ptr blankCertificate(EVP_PKEY *subjectKey, const char *commonName) {
  constexpr long kVersion3 = 2;
  X509Ptr certificate(checked(X509_new(), "out of memory"));
  X509_set_version(certificate.get(), kVersion3);
  setSerial(certificate.get());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kLifetimeSeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kLifetimeSeconds);
  setName(X509_get_subject_name(certificate.get()), commonName);
  checked(X509_set_pubkey(certificate.get(), subjectKey), "the public key was refused");
  return certificate;
}

} // namespace

Authority::Authority()
    : key_(generateSoftwareRsa()), certificate_(blankCertificate(key_.get(), "delegated_tls demo CA")) {
  X509 *certificate = certificate_.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
  addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign");
  checked(X509_sign(certificate, key_.get(), EVP_sha256()), "the authority could not sign");
}

X509Ptr Authority::issue(EVP_PKEY *publicKey) const {
  X509Ptr certificate = blankCertificate(publicKey, "localhost");
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate_.get()));
  addExtension(certificate.get(), certificate_.get(), NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
  addExtension(certificate.get(), certificate_.get(), NID_key_usage, "critical,digitalSignature,keyEncipherment");
  checked(X509_sign(certificate.get(), key_.get(), EVP_sha256()), "the authority could not sign");
  return certificate;
}

EVPPKeyPtr generateSoftwareRsa() {
  const EVPPKeyCtxPtr context(checked(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr), "out of memory"));
  EVP_PKEY *key = nullptr;
  checked(EVP_PKEY_keygen_init(context.get()) > 0 && EVP_PKEY_keygen(context.get(), &key) > 0,
          "no RSA key could be made");
  return EVPPKeyPtr(key);
}

} // namespace delegated_tls
