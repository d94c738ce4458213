// Finding a private key on a token by its public half.
#pragma once

#include "Session.h"

#include <openssl/evp.h>

namespace krHolder::pkcs11 {

/// An RSA key is found by its modulus. The private object of an EC key does not tell its point, so the key's public
/// object is found first, and then the private one with the same CKA_ID. Throws a Failure that says what is missing.
CK_OBJECT_HANDLE findPrivateKey(const Session &session, EVP_PKEY *publicHalf);

} // namespace krHolder::pkcs11
