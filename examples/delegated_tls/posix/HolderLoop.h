// The key holder's process.
#pragma once

#include "Descriptor.h"
#include "PrivateKey.h"

#include <vector>

namespace delegated_tls {

/// Answers the requests that come, until the other end of the socket is closed:
///   request   id, operation, key number, padding, data
///   answer    id, success, data
[[noreturn]] void runHolder(const Descriptor &socket, const std::vector<PrivateKey> &keys) noexcept;

} // namespace delegated_tls
