// Failures with OpenSSL's reason.
#include "Failure.h"

#include <openssl/err.h>

namespace delegated_tls {

Failure opensslFailure(const std::string &what) {
  const unsigned long code = ERR_peek_error();
  ERR_clear_error();
  const char *reason = ERR_reason_error_string(code);
  if (code == 0) {
    return Failure(what);
  }
  return Failure(what + ": " + (reason != nullptr ? reason : krOpenSSL::errStr(code)));
}

} // namespace delegated_tls
