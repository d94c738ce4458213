// The file with the token's PIN.
#pragma once

#include "Bytes.h"

#include <string>

namespace delegated_tls::pkcs11 {

/// The file's content without one newline at its end. Throws a Failure for a file that others than its owner may use,
/// that belongs to another user, or holds no PIN.
Bytes readPin(const std::string &path);

} // namespace delegated_tls::pkcs11
