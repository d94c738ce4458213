// For builds without PKCS#11.
#include "BackEnd.h"
#include "Failure.h"

namespace krHolder {

BackEnd tokenBackEnd() {
  return {"token", {"module", "pin_file", "public_key"}, [](const Settings & /*settings*/) {
            throw Unusable("this krholder was built without PKCS#11: it needs p11-kit's headers (Debian's "
                           "libp11-kit-dev)");
            return std::unique_ptr<const HeldKey>();
          }};
}

} // namespace krHolder
