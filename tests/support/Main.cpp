// The main of every test program.
#include "support/Allocations.h"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cstddef>
#include <cstdio>

namespace {

// A test that passes leaves OpenSSL's error queue empty; one that fails shows it. Nothing is done at the
// start: even a look at the queue would initialise OpenSSL before the library does. The library's trace, on the
// standard output, is for the test to read (Trace.h), and failures are shown elsewhere.
class Listener : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo & /*test*/) override { testing::internal::CaptureStdout(); }

  void OnTestPartResult(const testing::TestPartResult &result) override {
    if (result.failed()) {
      (void)std::fprintf(stderr, "%s:%d: %s\n", result.file_name(), result.line_number(), result.message());
    }
  }

  void OnTestEnd(const testing::TestInfo &test) override {
    testing::internal::GetCapturedStdout();
    if (test.result()->Passed()) {
      EXPECT_EQ(ERR_peek_error(), 0U) << "errors left in OpenSSL's queue";
    }
    ERR_print_errors_cb([](const char *text, std::size_t, void *) { return std::fputs(text, stderr); }, nullptr);
  }
};

} // namespace

int main(int argc, char **argv) {
  if (!krTest::allocations::install()) {
    (void)std::fputs("loading the library has made OpenSSL allocate\n", stderr);
    return 1;
  }
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new Listener);
  return RUN_ALL_TESTS();
}
