// The ex-data indexes: where a key names its connection and an SSL_CTX its provider record.
#pragma once

namespace krOpenSSL {

enum class ExData { rsa, dsa, ecdsa, sslCtx };

/// The index, made on first need; racing threads get the same one. -1 when it could not be made, the next
/// call tries again.
int exDataIndex(ExData kind) noexcept;

} // namespace krOpenSSL
