// Searches by key type.
#include "KeySearch.h"

#include "Der.h"

#include <krOpenSSL/krHandles.h>

#include <array>

namespace krHolder::pkcs11 {
namespace {

using OctetStringPtr = krOpenSSL::Handle<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;

/// An object of this class and type whose attribute has this value.
std::vector<CK_OBJECT_HANDLE> findKeys(const Session &session, CK_OBJECT_CLASS kind, CK_KEY_TYPE type,
                                       CK_ATTRIBUTE_TYPE name, Bytes value, std::size_t limit) {
  std::array attributes{CK_ATTRIBUTE{CKA_CLASS, &kind, sizeof kind}, CK_ATTRIBUTE{CKA_KEY_TYPE, &type, sizeof type},
                        CK_ATTRIBUTE{name, value.data(), value.size()}};
  return session.find(attributes, limit);
}

CK_OBJECT_HANDLE onlyPrivateKey(const Session &session, CK_KEY_TYPE type, CK_ATTRIBUTE_TYPE name, const Bytes &value,
                                const std::string &by) {
  const auto keys = findKeys(session, CKO_PRIVATE_KEY, type, name, value, 2);
  if (keys.empty()) {
    throw Failure("the key is not on the token: no private key there has " + by);
  }
  if (keys.size() > 1) {
    throw Failure("the key is ambiguous: more than one private key on the token has " + by);
  }
  return keys.front();
}

Bytes modulus(const RSA *rsa) {
  const BIGNUM *number = RSA_get0_n(rsa);
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, bytes.data());
  return bytes;
}

/// The public point as CKA_EC_POINT has it: an OCTET STRING around the uncompressed point.
Bytes point(const EC_KEY *key) {
  const EC_GROUP *group = EC_KEY_get0_group(key);
  const EC_POINT *point = EC_KEY_get0_public_key(key);
  Bytes bytes(EC_POINT_point2oct(group, point, POINT_CONVERSION_UNCOMPRESSED, nullptr, 0, nullptr));
  EC_POINT_point2oct(group, point, POINT_CONVERSION_UNCOMPRESSED, bytes.data(), bytes.size(), nullptr);
  const OctetStringPtr wrapped(checked(ASN1_OCTET_STRING_new()));
  checked(ASN1_OCTET_STRING_set(wrapped.get(), bytes.data(), static_cast<int>(bytes.size())));
  return derOf(wrapped.get(), i2d_ASN1_OCTET_STRING);
}

CK_OBJECT_HANDLE findEcKey(const Session &session, const EC_KEY *key) {
  const auto publicObjects = findKeys(session, CKO_PUBLIC_KEY, CKK_EC, CKA_EC_POINT, point(key), 1);
  if (publicObjects.empty()) {
    throw Failure("the key is not on the token: no public key there has its point (CKA_EC_POINT)");
  }
  const Bytes id = session.attribute(publicObjects.front(), CKA_ID);
  if (id.empty()) {
    throw Failure("the key cannot be found: its public key on the token has no CKA_ID");
  }
  return onlyPrivateKey(session, CKK_EC, CKA_ID, id, "the CKA_ID of its public key");
}

} // namespace

CK_OBJECT_HANDLE findPrivateKey(const Session &session, EVP_PKEY *publicHalf) {
  switch (EVP_PKEY_base_id(publicHalf)) {
  case EVP_PKEY_RSA:
    return onlyPrivateKey(session, CKK_RSA, CKA_MODULUS, modulus(krOpenSSL::keyObject::rsaOf(publicHalf)),
                          "its modulus (CKA_MODULUS)");
  case EVP_PKEY_EC:
    return findEcKey(session, krOpenSSL::keyObject::ecKeyOf(publicHalf));
  default:
    throw Failure("only RSA and EC keys can be on a token");
  }
}

} // namespace krHolder::pkcs11
