// An operation becomes a mechanism and its data, a session carries it out.
#include "TokenKey.h"

#include "Der.h"
#include "KeySearch.h"
#include "Signature.h"

#include <openssl/err.h>

#include <algorithm>

namespace krHolder::pkcs11 {

using namespace krOpenSSL;

namespace {

EVPPKeyPtr shareOf(EVP_PKEY *key) {
  EVP_PKEY_up_ref(key);
  return EVPPKeyPtr(key);
}

/// ECDSA takes the leftmost bits of a digest that is longer than the group's order (FIPS 186-4, 6.4), and not every
/// token cuts the rest off.
View leftmost(View digest, const EC_KEY *key) {
  const auto order = static_cast<std::size_t>((EC_GROUP_order_bits(EC_KEY_get0_group(key)) + 7) / 8);
  return digest.first(std::min(digest.size(), order));
}

bool verifies(EVP_PKEY *key, View digest, View signature) {
  const EVPPKeyCtxPtr context(checked(EVP_PKEY_CTX_new(key, nullptr)));
  const bool good =
      EVP_PKEY_verify_init(context.get()) == 1 && EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1 &&
      EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
  ERR_clear_error();
  return good;
}

std::string publicDer(EVP_PKEY *key) {
  const Bytes der = derOf(key, i2d_PUBKEY);
  return {der.begin(), der.end()};
}

} // namespace

TokenKey::TokenKey(std::shared_ptr<Token> token, EVP_PKEY *publicHalf)
    : token_(std::move(token)), publicHalf_(shareOf(publicHalf)), der_(publicDer(publicHalf)) {
  requireKeyWithoutFurtherPin();
  requireSignature();
}

Bytes TokenKey::signDigest(View digest) const {
  if (EVP_PKEY_base_id(publicHalf_.get()) != EVP_PKEY_EC) {
    return sign({CKM_RSA_PKCS, nullptr, 0}, digestInfo(digest));
  }
  return derSignature(
      sign({CKM_ECDSA, nullptr, 0}, leftmost(digest, krOpenSSL::keyObject::ecKeyOf(publicHalf_.get()))));
}

Bytes TokenKey::sign(CK_MECHANISM mechanism, View data) const { return carryOut(&Session::sign, mechanism, data); }

Bytes TokenKey::decrypt(CK_MECHANISM mechanism, View data) const {
  return carryOut(&Session::decrypt, mechanism, data);
}

Bytes TokenKey::carryOut(Operation operation, CK_MECHANISM mechanism, View data) const {
  const auto size = static_cast<std::size_t>(EVP_PKEY_size(publicHalf_.get())); // an ECDSA signature's DER is longer
  return token_->inSession([&](SessionPool::Lease &lease) {
    const CK_OBJECT_HANDLE key = handleIn(lease);
    return (lease.session().*operation)(mechanism, key, data, size);
  });
}

CK_OBJECT_HANDLE TokenKey::handleIn(SessionPool::Lease &lease) const {
  auto found = lease.keys().find(der_);
  if (found == lease.keys().end()) {
    found = lease.keys().emplace(der_, findPrivateKey(lease.session(), publicHalf_.get())).first;
  }
  return found->second;
}

void TokenKey::requireKeyWithoutFurtherPin() const {
  const Bytes always = token_->inSession(
      [&](SessionPool::Lease &lease) { return lease.session().attribute(handleIn(lease), CKA_ALWAYS_AUTHENTICATE); });
  if (!always.empty() && always.front() != CK_FALSE) {
    throw Failure("the key wants the PIN for each signature (CKA_ALWAYS_AUTHENTICATE), which the holder does not do");
  }
}

/// What the token says of its objects is not proof that the key is the one: a signature is.
void TokenKey::requireSignature() const {
  constexpr std::size_t kSha256Bytes = 32;
  const Bytes digest(kSha256Bytes, 1);
  if (!verifies(publicHalf_.get(), digest, signDigest(digest))) {
    throw Failure("the key found on the token does not belong to the public key: its signature does not verify");
  }
}

} // namespace krHolder::pkcs11
