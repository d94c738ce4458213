// MD4 and RC4, which OpenSSL 3 keeps apart.
#pragma once

#include <openssl/evp.h>

namespace krOpenSSL {

/// With OpenSSL 3 from its legacy provider, in a context of the library's own: what the host finds by name stays as it
/// is. Where the provider is not to be had, objects of OpenSSL's that tell what the algorithm is and refuse to begin.
///
/// It is looked for once in a process. Safe from any thread.
///@{
const EVP_MD *md4() noexcept;
const EVP_CIPHER *rc4() noexcept;
///@}

} // namespace krOpenSSL
