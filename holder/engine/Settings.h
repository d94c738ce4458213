// The engine's settings, and the ways to the holders that references name.
#pragma once

#include "client/Client.h"

#include <memory>
#include <string>

namespace krEngine {

/// As engine commands or lines of OpenSSL's configuration give them. They hold for references that are loaded later.
/// @throws Failure for a value that cannot be
void setSocket(const char *path);
void setDeadline(const char *milliseconds);

/// The way to a holder, one for each socket in a process.
/// @param socket  a reference's; empty: as the engine is set up
std::shared_ptr<krHolder::Client> clientFor(const std::string &socket);

} // namespace krEngine
