// Failures with OpenSSL's reason.
#include "Failure.h"

#include <openssl/err.h>

#include <system_error>

namespace delegated_tls {

void queueReason(const std::string &reason) {
  ERR_put_error(ERR_LIB_USER, 0, ERR_R_OPERATION_FAIL, __FILE__, __LINE__);
  ERR_add_error_data(1, reason.c_str());
}

Failure opensslFailure(const std::string &what) {
  const char *data = nullptr;
  int flags = 0;
  const unsigned long code = ERR_peek_error_line_data(nullptr, nullptr, &data, &flags);
  const bool isOurs = ERR_GET_LIB(code) == ERR_LIB_USER && (flags & ERR_TXT_STRING) != 0;
  const bool isSystems = ERR_GET_LIB(code) == ERR_LIB_SYS; // OpenSSL 3 has no texts for these
  const char *reason = isOurs ? data : ERR_reason_error_string(code);
  const std::string text = isSystems           ? std::generic_category().message(static_cast<int>(ERR_GET_REASON(code)))
                           : reason != nullptr ? reason
                                               : krOpenSSL::errStr(code);
  ERR_clear_error();
  return Failure(code == 0 ? what : what + ": " + text);
}

} // namespace delegated_tls
