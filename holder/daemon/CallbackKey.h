// A key behind the functions that programs give to krOpenSSL's DelegatedKey.
#pragma once

#include "HeldKey.h"

#include <krOpenSSL/krDelegate.hpp>

namespace krHolder {

/// The functions get what they get from a DelegatedKey: a digest, a padded block (PSS), data to decrypt. Decryption is
/// asked for without padding only: the holder takes it off. A function that is empty is refused; one that gives
/// nothing has failed, and one that throws has with its reason, which goes to the holder's log.
/// @param publicHalf  an RSA or EC key
std::unique_ptr<const HeldKey> callbackKey(krOpenSSL::EVPPKeyPtr publicHalf, krOpenSSL::KeyOperations operations);

} // namespace krHolder
