// Whether programs of the system's OpenSSL would take a reference.
#pragma once

#include <string>

namespace krHolder {

/// What the program openssl says, in this environment, when it cannot read the reference as a private key. Empty when
/// it can, or when there is no such program.
std::string complaintOfOpenSSL(const std::string &file);

} // namespace krHolder
