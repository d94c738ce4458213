// The socket that the holder listens on.
#pragma once

#include "wire/Stream.h"

#include <string>

namespace krHolder {

/// The socket that the service manager passed (LISTEN_FDS), or one made at the path, which everybody may connect to:
/// who may use a key, the key's policy says. A socket that nobody listens on any more is replaced.
/// @throws Unusable with path and reason
Descriptor listeningSocket(const std::string &path);

} // namespace krHolder
