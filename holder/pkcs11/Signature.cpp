// DER on the way to a token and back.
#include "Signature.h"

#include "Der.h"

#include <krOpenSSL/krDelegate.hpp>

namespace krHolder::pkcs11 {

using namespace krOpenSSL;

Bytes digestInfo(View digest) {
  const int hash = hashOfLength(digest.size());
  if (hash == NID_undef) {
    throw Failure("no hash algorithm has digests of " + std::to_string(digest.size()) + " bytes");
  }
  if (hash == NID_md5_sha1) {
    return {digest.begin(), digest.end()};
  }
  const X509SigPtr info(checked(X509_SIG_new()));
  X509_ALGOR *algorithm = nullptr;
  ASN1_OCTET_STRING *value = nullptr;
  X509_SIG_getm(info.get(), &algorithm, &value);
  checked(X509_ALGOR_set0(algorithm, OBJ_nid2obj(hash), V_ASN1_NULL, nullptr));
  checked(ASN1_OCTET_STRING_set(value, digest.data(), static_cast<int>(digest.size())));
  return derOf(info.get(), i2d_X509_SIG);
}

Bytes derSignature(View halves) {
  if (halves.empty() || halves.size() % 2 != 0) {
    throw Failure("the token's ECDSA signature has " + std::to_string(halves.size()) + " bytes, which is no pair");
  }
  const int half = static_cast<int>(halves.size() / 2);
  BIGNUMPtr r(checked(BN_bin2bn(halves.data(), half, nullptr)));
  BIGNUMPtr s(checked(BN_bin2bn(halves.data() + half, half, nullptr)));
  const ECDSASigPtr signature(checked(ECDSA_SIG_new()));
  checked(ECDSA_SIG_set0(signature.get(), r.release(), s.release()));
  return derOf(signature.get(), i2d_ECDSA_SIG);
}

} // namespace krHolder::pkcs11
