// Running OpenSSL's default RSA method on a key whose own method is a stranger's.
#pragma once

#include <krOpenSSL/krHandles.h>

namespace krOpenSSL {

/// OpenSSL's method computes with the mod_exp and bn_mod_exp of the key's own method, and jumps through null
/// where that method has none. A default method without arithmetic does not: it gets the key itself.
bool needsCopyForDefaultMethod(const RSA *rsa) noexcept;

/// A new key with the numbers of this one and the default method; null when it cannot be made.
RSAPtr copyForDefaultMethod(const RSA *rsa) noexcept;

} // namespace krOpenSSL
