// OpenSSL after its end.
#pragma once

#include <openssl/crypto.h>

namespace krOpenSSL {

/// Whether OpenSSL can begin something. Once it was cleaned up, which happens while the process exits, 3 goes through
/// null where it looks for an algorithm; 1.1.1 looks for none.
inline bool canBegin() noexcept {
  return OPENSSL_VERSION_NUMBER < 0x30000000L || OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) != 0;
}

} // namespace krOpenSSL
