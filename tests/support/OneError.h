// Whether OpenSSL's error queue is left as it was found.
#pragma once

#include <gtest/gtest.h>
#include <openssl/err.h>

namespace krTest {

/// An entry that was in the error queue before, with a mark of the caller's on it, and has to be all that is there
/// afterwards, still marked.
struct OneError {
  OneError() {
    ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
    ERR_set_mark();
  }
  ~OneError() {
    EXPECT_EQ(ERR_peek_last_error(), ERR_PACK(ERR_LIB_USER, 0, 1));
    ERR_put_error(ERR_LIB_USER, 0, 2, __FILE__, __LINE__);
    EXPECT_EQ(ERR_pop_to_mark(), 1);
    EXPECT_EQ(ERR_get_error(), ERR_PACK(ERR_LIB_USER, 0, 1));
    EXPECT_EQ(ERR_get_error(), 0U);
  }
};

} // namespace krTest
