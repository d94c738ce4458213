// The file with the token's PIN.
#pragma once

#include "wire/Wiping.h"

#include <string>

namespace krHolder::pkcs11 {

/// The file's content without one newline at its end. Throws a Failure for a file that others than its owner may use,
/// that belongs to another user, or holds no PIN.
Bytes readPin(const std::string &path);

} // namespace krHolder::pkcs11
