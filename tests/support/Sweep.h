// Failing each allocation of a piece of work in turn.
#pragma once

#include "support/Allocations.h"
#include "support/Trace.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace krTest {

/// Runs the work once, then with its first allocation failing, then with its second, and so on until a run
/// asks for fewer. After each run recover has to leave as many blocks as it did before.
inline void sweep(
    const std::function<void()> &work, const std::function<void()> &recover = [] {}) {
  allocations::failNth(std::numeric_limits<long>::max());
  work(); // what OpenSSL makes once is made now
  ERR_clear_error();
  allocations::failNth(0);
  recover();
  const long before = allocations::outstanding();
  bool more = true;
  for (long n = 1; more && !testing::Test::HasFailure(); ++n) {
    SCOPED_TRACE(testing::Message() << "allocation " << n);
    allocations::failNth(n);
    work();
    more = allocations::failed();
    allocations::failNth(0);
    recover();
    ERR_clear_error();
    EXPECT_EQ(allocations::outstanding(), before);
  }
}

/// As sweep, with the output taken. Returns the lines of the run whose first allocation failed, up to the message.
inline Lines sweepTraced(const std::function<void()> &work) {
  Lines first;
  sweep([&] {
    const Trace trace;
    work();
    first = allocations::failed() && first.empty() ? trace.lines() : first;
  });
  first.resize(std::min<std::size_t>(first.size(), 3));
  return first;
}

} // namespace krTest
