// The console trace, and where its lines stand around the call. What each accessor forwards to shows where it is used.
#include "accessors/krAccessors.h"
#include "accessors/Traced.h"
#include "accessors/krTraceLog.h"
#include "support/Trace.h"

#include <krOpenSSL/krHandles.h>

#include <gtest/gtest.h>

namespace {

using namespace krTest;

// A method that says when it is called.
template <class Result, auto kResult, class... Arguments> Result say(Arguments... /*arguments*/) {
  std::puts("krOpenSSL the call");
  return kResult();
}
int eight() { return 8; }

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

TEST(Accessors, SigningGoesToTheDefaultMethodsInTheTracedOrder) {
  const krOpenSSL::RSAMethodPtr rsa(RSA_meth_new("", 0));
  const krOpenSSL::DSAMethodPtr dsa(DSA_meth_new("", 0));
  const krOpenSSL::ECKeyMethodPtr ec(EC_KEY_METHOD_new(EC_KEY_OpenSSL()));
  RSA_meth_set_priv_enc(rsa.get(), say<int, eight>);
  RSA_meth_set_priv_dec(rsa.get(), say<int, eight>);
  DSA_meth_set_sign(dsa.get(), say<DSA_SIG *, DSA_SIG_new>);
  EC_KEY_METHOD_set_sign(ec.get(), nullptr, nullptr, say<ECDSA_SIG *, ECDSA_SIG_new>);
  RSA_set_default_method(rsa.get());
  DSA_set_default_method(dsa.get());
  EC_KEY_set_default_method(ec.get());

  Trace trace;
  krOpenSSL::tracedAround("getter", say<int, eight>);
  const int decrypted = krRSA_priv_dec(5, nullptr, nullptr, nullptr, 3);
  const int encrypted = krRSA_private_encrypt(rsa.get(), 5, nullptr, nullptr, nullptr, 3);
  const int withoutMethod = krRSA_private_encrypt(nullptr, 5, nullptr, nullptr, nullptr, 3);
  const krOpenSSL::DSASigPtr dsaSignature(krDSA_do_sign(nullptr, 0, nullptr));
  const krOpenSSL::ECDSASigPtr ecSignature(krECDSA_do_sign_ex(nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_TRUE(decrypted == 8 && encrypted == 8 && withoutMethod == 1 && dsaSignature && ecSignature);
  EXPECT_EQ(trace.lines(),
            tagged("Start - getter|the call|End - getter|@krRSA_priv_dec|the call|@krRSA_private_encrypt|the call|"
                   "Start - krRSA_private_encrypt|krRSA_private_encrypt: rsaMethod is NULL|"
                   "End - krRSA_private_encrypt|@krDSA_do_sign|the call|"
                   "Start - krECDSA_do_sign_ex|the call|End - krECDSA_do_sign_ex"));
  RSA_set_default_method(RSA_PKCS1_OpenSSL());
  DSA_set_default_method(DSA_OpenSSL());
  EC_KEY_set_default_method(EC_KEY_OpenSSL());
}
