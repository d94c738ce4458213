// RSA's paddings, for keys that can do RSA without any.
#pragma once

#include "HeldKey.h"

namespace krHolder {

/// The block that RSA-PSS has RSA's private operation applied to (RFC 8017, 9.1.1), as long as the key.
/// @throws Refusal for a key that is too short for the salt
Bytes pssBlock(EVP_PKEY *key, const Signing &what);

/// The text in a block that RSA's private operation gave.
/// @throws std::runtime_error for a padding that is wrong, without a word how
Bytes withoutPadding(EVP_PKEY *key, const Decrypting &what, View block);

} // namespace krHolder
