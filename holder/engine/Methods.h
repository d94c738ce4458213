// What EVP does with this engine's keys, and with no others.
#pragma once

#include <openssl/engine.h>

namespace krEngine {

/// OpenSSL's question for a key type's method, or for the list of types: that is empty, so that nobody can make the
/// methods the default of keys that are not ours. They ask the holder for a scheme by its name, with the message where
/// they have it: the holder can see what it signs.
int methodFor(ENGINE *engine, EVP_PKEY_METHOD **method, const int **types, int type) noexcept;

} // namespace krEngine
