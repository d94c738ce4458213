// The sessions of a token's key holder: how many there are at once, which are kept, and which are opened anew.
#include "pkcs11/SessionPool.h"
#include "pkcs11/Failure.h"

#include <gtest/gtest.h>

using namespace krHolder;
using pkcs11::Failure;

TEST(SessionPool, PlacesAreBoundedSessionsKeptAndFailedOnesReplaced) {
  using namespace std::chrono_literals;
  int opened = 0;
  pkcs11::SessionPool pool(
      [&opened] {
        ++opened;
        return pkcs11::KeySession{};
      },
      1, 50ms);
  {
    pkcs11::SessionPool::Lease lease(pool);
    EXPECT_THROW(pkcs11::SessionPool::Lease second(pool), Failure);
    lease.giveBack();
  }
  { pkcs11::SessionPool::Lease kept(pool); } // not given back
  EXPECT_EQ(opened, 1);
  { pkcs11::SessionPool::Lease(pool).giveBack(); }
  EXPECT_EQ(opened, 2);
  pool.closeIdle();
  pkcs11::SessionPool failing([]() -> pkcs11::KeySession { throw Failure("no token"); }, 1, 50ms);
  for (int i = 0; i < 2; ++i) { // a place is free again after a session that could not be opened
    EXPECT_THROW(
        try { pkcs11::SessionPool::Lease lease(failing); } catch (const Failure &failure) {
          EXPECT_STREQ(failure.what(), "no token");
          throw;
        },
        Failure);
  }
}
