// The server's half of a TLS key exchange by RSA.
#pragma once

#include "wire/Message.h"

namespace krHolder {

/// The premaster secret in a decrypted block, or as many random bytes where its padding or its version is wrong (RFC
/// 5246, 7.4.7.1): in the same time, by the same steps, for both.
/// @param block   as the private operation gave it, 11 bytes longer than the secret at least
/// @param random  what is given for a wrong one
Bytes premasterOf(View block, std::uint16_t clientVersion, std::uint16_t otherVersion,
                  std::span<const unsigned char, kPremasterBytes> random);

} // namespace krHolder
