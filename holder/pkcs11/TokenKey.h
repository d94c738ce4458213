// A private key that never leaves its token.
#pragma once

#include "Token.h"

#include <krOpenSSL/krHandles.h>

#include <string>

namespace krHolder::pkcs11 {

/// Several threads may use it at once. Each operation throws a Failure with the token's reason when it fails.
class TokenKey {
public:
  /// Logs in to the token and finds the private key of @p publicHalf, RSA or EC. Throws a Failure when there is no such
  /// key, or it does not sign.
  TokenKey(std::shared_ptr<Token> token, EVP_PKEY *publicHalf);

  EVP_PKEY *publicHalf() const noexcept { return publicHalf_.get(); }
  Token &token() const noexcept { return *token_; }

  /// RSA by PKCS#1 v1.5, with the digest's DigestInfo by its length; ECDSA, as DER.
  Bytes signDigest(View digest) const;

  /// What the mechanism makes of the data, which are the size of the key at most.
  Bytes sign(CK_MECHANISM mechanism, View data) const;
  Bytes decrypt(CK_MECHANISM mechanism, View data) const;

private:
  using Operation = Bytes (Session::*)(CK_MECHANISM, CK_OBJECT_HANDLE, View, std::size_t) const;

  Bytes carryOut(Operation operation, CK_MECHANISM mechanism, View data) const;
  CK_OBJECT_HANDLE handleIn(SessionPool::Lease &lease) const;
  void requireKeyWithoutFurtherPin() const;
  void requireSignature() const;

  const std::shared_ptr<Token> token_;
  const krOpenSSL::EVPPKeyPtr publicHalf_;
  const std::string der_; // of the public half
};

} // namespace krHolder::pkcs11
