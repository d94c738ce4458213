// Failing each allocation of a piece of work in turn.
#pragma once

#include "support/Allocations.h"
#include "support/Keys.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <functional>
#include <limits>

namespace krTest {

/// Runs the work once, then with its first allocation failing, then with its second, and so on until a run
/// asks for fewer; and all of it again with the allocations that follow failing too. After each run recover has
/// to leave as many blocks as it did before; with OpenSSL 3, which keeps some for later, leaks are the address
/// sanitizer's to find.
inline void sweep(
    const std::function<void()> &work, const std::function<void()> &recover = [] {}) {
  allocations::failNth(std::numeric_limits<long>::max());
  work(); // what OpenSSL makes once is made now
  ERR_clear_error();
  allocations::failNth(0);
  recover();
  const long before = allocations::outstanding();
  for (const auto failing : {allocations::Failing::one, allocations::Failing::onwards}) {
    bool more = true;
    for (long n = 1; more && !testing::Test::HasFailure(); ++n) {
      SCOPED_TRACE(testing::Message() << "allocation " << n
                                      << (failing == allocations::Failing::one ? "" : " onwards"));
      allocations::failNth(n, failing);
      work();
      more = allocations::failed();
      allocations::failNth(0);
      recover();
      ERR_clear_error();
      EXPECT_TRUE(kOpenSSL3 || allocations::outstanding() == before) << allocations::outstanding() - before;
    }
  }
}

} // namespace krTest
