// A throw-away certificate authority for the demo.
#pragma once

#include <krOpenSSL/krHandles.h>

namespace delegated_tls {

class Authority {
public:
  Authority();

  X509 *certificate() const { return certificate_.get(); }

  /// A server certificate for "localhost" over the public key.
  krOpenSSL::X509Ptr issue(EVP_PKEY *publicKey) const;

private:
  krOpenSSL::EVPPKeyPtr key_;
  krOpenSSL::X509Ptr certificate_;
};

/// A plain software key of OpenSSL's.
krOpenSSL::EVPPKeyPtr generateSoftwareRsa();

} // namespace delegated_tls
