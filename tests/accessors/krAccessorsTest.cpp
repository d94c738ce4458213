// The console trace, and where its lines stand around the call. What each accessor forwards to shows where it is used.
#include "accessors/krAccessors.h"
#include "accessors/Traced.h"
#include "accessors/krTraceLog.h"
#include "support/Machine.h"
#include "support/Trace.h"

#include <krOpenSSL/krHandles.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>

namespace {

using namespace krTest;

int say(int /*length*/, const unsigned char * /*from*/, unsigned char * /*to*/, RSA * /*rsa*/, int /*padding*/) {
  return std::puts("krOpenSSL the call") >= 0 ? 8 : 0;
}

} // namespace

TEST(TraceLog, WritesOneTaggedLineUnlessTheFormatIsTooLong) {
  const std::string text(3000, 'x');
  const std::string format(2043, 'f'); // with tag, blank and line break 2048 bytes
  Trace trace;
  EXPECT_EQ(krTraceLog("tag", "%s: %d", "name", 7), 12);
  EXPECT_EQ(krTraceLog("tag", "%s", text.c_str()), 3005);
  EXPECT_EQ(krTraceLog("tag", format.c_str() + 1, 0), 2047);
  EXPECT_LT(krTraceLog("tag", format.c_str(), 0), 0);
  EXPECT_EQ(trace.lines(), (Lines{"tag name: 7\n", "tag " + text + "\n", "tag " + format.substr(1) + "\n"}));
}

TEST(TraceLogDeathTest, IsOffWhereTheEnvironmentSaysSoOrTheOutputIsClosed) {
  struct Row {
    const char *variable;
    int printed = 0;
    bool closedAtFirst = false, closedAtSetup = false;
  };
  const auto last = [](const Row &row) {
    machine::setVariable("KR_TRACE", row.variable);
    if (row.closedAtFirst) {
      close(STDOUT_FILENO);
    }
    krTraceLog("tag", "first");
    if (row.closedAtSetup) {
      close(STDOUT_FILENO);
    }
    krOpenSSL::checkTraceOutput();
    dup2(STDERR_FILENO, STDOUT_FILENO); // somebody gets the number
    return krTraceLog("tag", "last");
  };
  for (const Row &row :
       {Row{.variable = "off"}, Row{.variable = "Off", .printed = 9}, Row{.variable = "offer", .printed = 9},
        Row{.variable = "on", .closedAtFirst = true}, Row{.variable = "on", .closedAtSetup = true}}) {
    EXPECT_EXIT(std::exit(last(row)), testing::ExitedWithCode(row.printed), "") << row.variable;
  }
}

TEST(Accessors, TraceLinesStandAroundTheCall) {
  const krOpenSSL::RSAMethodPtr rsa(RSA_meth_new("", 0));
  RSA_meth_set_priv_enc(rsa.get(), say);
  Trace trace;
  krOpenSSL::tracedAround("getter", say, 0, nullptr, nullptr, nullptr, 0);
  EXPECT_EQ(krRSA_private_encrypt(rsa.get(), 5, nullptr, nullptr, nullptr, 3), 8);
  EXPECT_EQ(krRSA_private_encrypt(nullptr, 5, nullptr, nullptr, nullptr, 3), 1);
  EXPECT_EQ(trace.lines(), tagged("Start - getter|the call|End - getter|@krRSA_private_encrypt|the call|"
                                  "Start - krRSA_private_encrypt|krRSA_private_encrypt: rsaMethod is NULL|"
                                  "End - krRSA_private_encrypt"));
}
