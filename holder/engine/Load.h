// From a reference to a key that a program of OpenSSL can use.
#pragma once

#include "RemoteKey.h"

#include <openssl/engine.h>

namespace krEngine {

/// The key of the reference in a file: a public half, whose private operations ask the holder.
/// @throws std::exception
krOpenSSL::EVPPKeyPtr loadKey(ENGINE *engine, const char *file);

/// What stands behind a key; null for keys that are not this engine's.
const RemoteKey *remoteOf(EVP_PKEY *key) noexcept;

} // namespace krEngine
