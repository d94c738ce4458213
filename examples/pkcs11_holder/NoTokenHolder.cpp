// For builds without PKCS#11.
#include "TokenHolder.h"

#include "Failure.h"

namespace delegated_tls {

std::unique_ptr<KeyHolder> startTokenHolder(const TokenOptions & /*options*/, const Bytes & /*publicHalf*/,
                                            const FailureReport & /*report*/) {
  throw Failure("this delegated_tls was built without --holder pkcs11: it needs Linux and, when it is built, "
                "p11-kit's headers (Debian's libp11-kit-dev)");
}

} // namespace delegated_tls
