// The engine in force.
#pragma once

#include <openssl/engine.h>

#include <atomic>

namespace krOpenSSL {

/// The engine that is registered now, or null. Written by the engine load and unload, wolfEngine's among them.
extern std::atomic<ENGINE *> activeEngine;

} // namespace krOpenSSL
