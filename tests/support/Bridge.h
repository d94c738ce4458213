// The bridge engine as the product registers it.
#pragma once

#include "fips/ActiveEngine.h"
#include "fipsbridge/qvFipsRand.h"
#include "state/State.h"
#include "support/ReferenceModule.h"
#include "support/Trace.h"

#include <krOpenSSL/krLifecycle.h>

#include <gtest/gtest.h>
#include <openssl/engine.h>

namespace krTest {

/// Has the bridge registered for its life, with the reference module attached and its generator ready, or
/// without any module as in the product.
struct Bridge {
  explicit Bridge(bool withModule = true) {
    krOpenSSL::state::fipsMode = 1;
    EXPECT_EQ(krOpenSSLEngineLoad(), 1);
    engine = krOpenSSL::activeEngine;
    if (withModule) {
      krOpenSSL::state::fipsModule = &referenceModule::table;
      EXPECT_EQ(qvFipsRandSeed(nullptr, 0), 1);
    }
    referenceModule::calls();
    trace.clear();
  }
  ~Bridge() {
    referenceModule::failing.clear();
    referenceModule::fault = referenceModule::Fault::none;
    RAND_set_rand_method(nullptr); // or OpenSSL would stay with the bridge's
    qvFipsRandCleanup();
    krOpenSSL::state::fipsModule = nullptr;
    krOpenSSL::state::fipsMode = 0;
    krOpenSSLEngineUnload();
  }
  Bridge(const Bridge &) = delete;
  Bridge &operator=(const Bridge &) = delete;

  Trace trace;
  ENGINE *engine;
};

} // namespace krTest
