// What OpenSSL's TLS finds by name, once.
#pragma once

namespace krOpenSSL {

/// Has OpenSSL list its algorithms, and lists those again that TLS needs and that memory was missing for. To be
/// called ahead of OPENSSL_init_ssl, which looks for them once and, without them, fails for the life of the process.
///
/// @return false when one of them cannot be listed
bool listTlsAlgorithms() noexcept;

} // namespace krOpenSSL
