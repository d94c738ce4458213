// Which engines serve OpenSSL now.
#pragma once

#include "support/Allocations.h"

#include <openssl/engine.h>

#include <string>

namespace krTest {

inline constexpr const char *kNone = "- - - - - - - -";
inline constexpr const char *kOrdinary = "qvlib qvlib qvlib - qvlib - - -";
inline constexpr const char *kFips =
    "wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine wolfEngine";
inline constexpr const char *kBridge = "qvlibFIPS qvlibFIPS - qvlibFIPS qvlibFIPS qvlibFIPS qvlibFIPS -";

/// The engines for RSA, DSA, EC, DH, random numbers, ciphers, digests and EVP_PKEY methods.
inline std::string engines() {
  const allocations::Spared spared;
  std::string names;
  for (ENGINE *engine : {ENGINE_get_default_RSA(), ENGINE_get_default_DSA(), ENGINE_get_default_EC(),
                         ENGINE_get_default_DH(), ENGINE_get_default_RAND(), ENGINE_get_cipher_engine(NID_aes_128_cbc),
                         ENGINE_get_digest_engine(NID_sha256), ENGINE_get_pkey_meth_engine(EVP_PKEY_RSA)}) {
    names += std::string(names.empty() ? "" : " ") + (engine != nullptr ? ENGINE_get_id(engine) : "-");
    ENGINE_finish(engine);
  }
  return names;
}

} // namespace krTest
