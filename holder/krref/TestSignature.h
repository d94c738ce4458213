// Whether a holder really signs for a reference.
#pragma once

#include "client/Client.h"
#include "reference/Reference.h"

namespace krHolder {

/// SHA-256 of its public key.
Fingerprint fingerprintOf(const Reference &reference);

/// Has the holder sign what a TLS 1.3 server would, with the first digest that the key's policy allows, and verifies
/// it.
/// @return what was signed, as "ecdsa with sha256"
/// @throws std::runtime_error that says what is wrong
std::string testSignature(Client &holder, const Reference &reference);

} // namespace krHolder
