// What the engine object holds.
#include "engine/qvlib.h"
#include "engine/qvlibDSA.h"
#include "engine/qvlibRSA.h"
#include "engine/qvlibRand.h"
#include "state/State.h"

#include <krOpenSSL/krHandles.h>

#include <gtest/gtest.h>

namespace {

krOpenSSL::Handle<ENGINE, ENGINE_free> built() {
  krOpenSSL::Handle<ENGINE, ENGINE_free> engine(ENGINE_new());
  EXPECT_EQ(qvlib_bind(engine.get()), 1);
  return engine;
}

} // namespace

TEST(Qvlib, ReplacesThePrivateOperationsAndNothingElse) {
  const auto engine = built();
  built().reset(); // another one takes nothing from it
  EXPECT_STREQ(ENGINE_get_id(engine.get()), "qvlib");
  EXPECT_STREQ(ENGINE_get_name(engine.get()), "qvlib engine");
  EXPECT_EQ(ENGINE_get_init_function(engine.get())(engine.get()), 1);
  EXPECT_EQ(ENGINE_get_RAND(engine.get()), &qvlib_rand_method);

  const RSA_METHOD *rsa = ENGINE_get_RSA(engine.get());
  EXPECT_STREQ(RSA_meth_get0_name(rsa), "qvlib RSA method");
  EXPECT_EQ(RSA_meth_get_priv_enc(rsa), &qvlib_RSA_private_encrypt);
  EXPECT_EQ(RSA_meth_get_priv_dec(rsa), &qvlib_RSA_private_decrypt);
  EXPECT_EQ(RSA_meth_get_pub_enc(rsa), RSA_meth_get_pub_enc(RSA_get_default_method()));
  EXPECT_EQ(RSA_meth_get_pub_dec(rsa), RSA_meth_get_pub_dec(RSA_get_default_method()));
  EXPECT_EQ(RSA_meth_get_flags(rsa), RSA_meth_get_flags(RSA_get_default_method()));

  const DSA_METHOD *dsa = ENGINE_get_DSA(engine.get());
  EXPECT_STREQ(DSA_meth_get0_name(dsa), "qvlib DSA method");
  EXPECT_EQ(DSA_meth_get_sign(dsa), &qvlib_DSA_do_sign);
  EXPECT_EQ(DSA_meth_get_verify(dsa), DSA_meth_get_verify(DSA_get_default_method()));

  int (*setup[2])(EC_KEY *, BN_CTX *, BIGNUM **, BIGNUM **){};
  EC_KEY_METHOD_get_sign(ENGINE_get_EC(engine.get()), nullptr, &setup[0], nullptr);
  EC_KEY_METHOD_get_sign(EC_KEY_get_default_method(), nullptr, &setup[1], nullptr);
  EXPECT_EQ(setup[0], setup[1]);
  int (*generate[2])(EC_KEY *){};
  EC_KEY_METHOD_get_keygen(ENGINE_get_EC(engine.get()), &generate[0]);
  EC_KEY_METHOD_get_keygen(EC_KEY_get_default_method(), &generate[1]);
  EXPECT_EQ(generate[0], generate[1]);
}

TEST(Qvlib, HasNoRandomMethodInFipsMode) {
  krOpenSSL::state::fipsMode = 1;
  EXPECT_EQ(ENGINE_get_RAND(built().get()), nullptr);
}
