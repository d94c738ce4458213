// The console trace and the traced accessors: each writes its own two lines, in its order, and forwards.
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "support/Keys.h"
#include "support/Trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace {

using namespace krTest;

// A setter traces before its call, a getter around it; both keep the order of the numbers.
template <class Object, class Get, class... Number>
void expectPair(const std::string &type, const std::string &what, Object *object, int (*set)(Object *, Number...),
                Get get, std::array<const BIGNUM *(*)(const Object *), sizeof...(Number)> held) {
  std::array<BIGNUM *, sizeof...(Number)> given{};
  std::generate(given.begin(), given.end(), BN_new);
  Trace setting([&] { return held[0](object) != nullptr; });
  const int result = std::apply([&](auto... number) { return set(object, number...); }, given);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(setting.lines(), tagged("@kr" + type + "_set0_" + what));
  EXPECT_EQ(setting.probed, (std::vector<bool>{false, false}));

  std::array<const BIGNUM *, sizeof...(Number)> got{};
  Trace getting([&] { return got[0] != nullptr; });
  std::apply([&](auto &...number) { get(object, &number...); }, got);
  EXPECT_EQ(getting.lines(), tagged("@kr" + type + "_get0_" + what));
  EXPECT_EQ(getting.probed, (std::vector<bool>{false, true}));
  for (std::size_t i = 0; i < given.size(); ++i) {
    EXPECT_EQ(held[i](object), given[i]) << type << what;
    EXPECT_EQ(got[i], given[i]) << type << what;
  }
}

// Methods that say when they are called.
int sayRsa(int flen, const unsigned char * /*from*/, unsigned char * /*to*/, RSA * /*rsa*/, int padding) {
  std::puts("krOpenSSL the call");
  return flen + padding;
}
DSA_SIG *sayDsa(const unsigned char * /*dgst*/, int /*dlen*/, DSA * /*dsa*/) {
  std::puts("krOpenSSL the call");
  return DSA_SIG_new();
}
ECDSA_SIG *sayEcdsa(const unsigned char * /*dgst*/, int /*length*/, const BIGNUM * /*kinv*/, const BIGNUM * /*r*/,
                    EC_KEY * /*key*/) {
  std::puts("krOpenSSL the call");
  return ECDSA_SIG_new();
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

TEST(Accessors, SettersTraceBeforeTheCallAndGettersAroundIt) {
  const krOpenSSL::DHPtr ownDh(DH_new());
  const krOpenSSL::DSAPtr ownDsa(DSA_new());
  const krOpenSSL::RSAPtr ownRsa(RSA_new());
  DH *dh = ownDh.get();
  DSA *dsa = ownDsa.get();
  RSA *rsa = ownRsa.get();
  expectPair("DH", "pqg", dh, krDH_set0_pqg, krDH_get0_pqg, {DH_get0_p, DH_get0_q, DH_get0_g});
  expectPair("DH", "key", dh, krDH_set0_key, krDH_get0_key, {DH_get0_pub_key, DH_get0_priv_key});
  expectPair("DSA", "pqg", dsa, krDSA_set0_pqg, krDSA_get0_pqg, {DSA_get0_p, DSA_get0_q, DSA_get0_g});
  expectPair("DSA", "key", dsa, krDSA_set0_key, krDSA_get0_key, {DSA_get0_pub_key, DSA_get0_priv_key});
  expectPair("RSA", "key", rsa, krRSA_set0_key, krRSA_get0_key, {RSA_get0_n, RSA_get0_e, RSA_get0_d});
  expectPair("RSA", "factors", rsa, krRSA_set0_factors, krRSA_get0_factors, {RSA_get0_p, RSA_get0_q});
  expectPair("RSA", "crt_params", rsa, krRSA_set0_crt_params, krRSA_get0_crt_params,
             {RSA_get0_dmp1, RSA_get0_dmq1, RSA_get0_iqmp});
}

TEST(Accessors, SigningGoesToTheDefaultMethodsInTheTracedOrder) {
  const krOpenSSL::RSAMethodPtr rsa(RSA_meth_new("", 0));
  const krOpenSSL::DSAMethodPtr dsa(DSA_meth_new("", 0));
  const krOpenSSL::ECKeyMethodPtr ec(EC_KEY_METHOD_new(EC_KEY_OpenSSL()));
  RSA_meth_set_priv_enc(rsa.get(), sayRsa);
  RSA_meth_set_priv_dec(rsa.get(), sayRsa);
  DSA_meth_set_sign(dsa.get(), sayDsa);
  EC_KEY_METHOD_set_sign(ec.get(), nullptr, nullptr, sayEcdsa);
  RSA_set_default_method(rsa.get());
  DSA_set_default_method(dsa.get());
  EC_KEY_set_default_method(ec.get());

  Trace trace;
  const int decrypted = krRSA_priv_dec(5, nullptr, nullptr, nullptr, 3);
  const int encrypted = krRSA_private_encrypt(rsa.get(), 5, nullptr, nullptr, nullptr, 3);
  const int withoutMethod = krRSA_private_encrypt(nullptr, 5, nullptr, nullptr, nullptr, 3);
  const krOpenSSL::DSASigPtr dsaSignature(krDSA_do_sign(nullptr, 0, nullptr));
  const krOpenSSL::ECDSASigPtr ecSignature(krECDSA_do_sign_ex(nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_TRUE(decrypted == 8 && encrypted == 8 && withoutMethod == 1 && dsaSignature && ecSignature);
  EXPECT_EQ(trace.lines(),
            tagged("@krRSA_priv_dec|the call|@krRSA_private_encrypt|the call|Start - krRSA_private_encrypt|"
                   "krRSA_private_encrypt: rsaMethod is NULL|End - krRSA_private_encrypt|@krDSA_do_sign|the call|"
                   "Start - krECDSA_do_sign_ex|the call|End - krECDSA_do_sign_ex"));
  RSA_set_default_method(RSA_PKCS1_OpenSSL());
  DSA_set_default_method(DSA_OpenSSL());
  EC_KEY_set_default_method(EC_KEY_OpenSSL());
}

TEST(Accessors, ForwardToOpenSSLUnderTheirOwnNames) {
  EC_KEY *ec = EVP_PKEY_get0_EC_KEY(softwareKey(Kind::p256));
  const krOpenSSL::SSLCtxPtr tls(SSL_CTX_new(TLS_method()));
  const krOpenSSL::SSLPtr ssl(SSL_new(tls.get()));
  const krOpenSSL::EVPMDCtxPtr md(EVP_MD_CTX_new());
  EVP_DigestInit(md.get(), EVP_sha384());
  const krOpenSSL::X509SigPtr info(X509_SIG_new());
  ASN1_OCTET_STRING *octets = nullptr;
  X509_SIG_getm(info.get(), nullptr, &octets);
  ASN1_OCTET_STRING_set(octets, Bytes(6, 'd').data(), 6);
  const krOpenSSL::Handle<ENGINE, ENGINE_free> engine(ENGINE_new());
  ENGINE_set_EC(engine.get(), EC_KEY_OpenSSL());
  EVP_CIPHER_CTX *cipher = nullptr;
  HMAC_CTX *hmac = nullptr;
  int index = 0;

  const std::pair<const char *, std::function<bool()>> rows[] = {
      {"krECDSA_get_ex_new_index",
       [&] { return (index = krECDSA_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr)) > 0; }},
      {"krECDSA_get_ex_data",
       [&] { return EC_KEY_set_ex_data(ec, index, &index) == 1 && krECDSA_get_ex_data(ec, index) == &index; }},
      {"krENGINE_register_ECDSA",
       [&] {
         krENGINE_register_ECDSA(engine.get());
         return ENGINE_get_default_EC() == engine.get() && ENGINE_finish(engine.get()) == 1;
       }},
      {"krENGINE_unregister_ECDSA",
       [&] { return krENGINE_unregister_ECDSA(engine.get()), ENGINE_get_default_EC() == nullptr; }},
      {"krEVP_CIPHER_CTX_new",
       [&] {
         cipher = krEVP_CIPHER_CTX_new();
         return EVP_EncryptInit(cipher, EVP_aes_128_cbc(), Bytes(16).data(), Bytes(16, 7).data()) == 1;
       }},
      {"krEVP_CIPHER_CTX_encrypting", [&] { return krEVP_CIPHER_CTX_encrypting(cipher) == 1; }},
      {"krEVP_CIPHER_CTX_get_cipher_data",
       [&] { return krEVP_CIPHER_CTX_get_cipher_data(cipher) == EVP_CIPHER_CTX_get_cipher_data(cipher); }},
      {"krEVP_CIPHER_CTX_iv", [&] { return krEVP_CIPHER_CTX_iv(cipher)[0] == 7; }},
      {"krEVP_CIPHER_CTX_iv_noconst", [&] { return krEVP_CIPHER_CTX_iv_noconst(cipher)[0] == 7; }},
      {"krEVP_CIPHER_CTX_Cleanup", [&] { return krEVP_CIPHER_CTX_Cleanup(cipher), true; }}, // or it leaks
      {"krEVP_CIPHER_CTX_Cleanup", [&] { return krEVP_CIPHER_CTX_Cleanup(nullptr), true; }},
      {"krEVP_MD_CTX_md_data", [&] { return krEVP_MD_CTX_md_data(md.get()) == EVP_MD_CTX_md_data(md.get()); }},
      {"krEVP_MD_CTX_test_flags", [&] { return krEVP_MD_CTX_test_flags(md.get()) == 0; }},
      {"krEVP_MD_CTX_test_flags",
       [&] { return EVP_MD_CTX_set_flags(md.get(), 0x102), krEVP_MD_CTX_test_flags(md.get()) == 0x100; }},
      {"krEVP_MD_size", [&] { return krEVP_MD_size(md.get()) == 48; }},
      {"krHMAC_CTX_new", [&] { return (hmac = krHMAC_CTX_new()) != nullptr; }},
      {"krHMAC_CTX_cleanup", [&] { return krHMAC_CTX_cleanup(hmac), true; }}, // or it leaks
      {"krHMAC_CTX_cleanup", [&] { return krHMAC_CTX_cleanup(nullptr), true; }},
      {"krSSL_get_SSL_CTX", [&] { return krSSL_get_SSL_CTX(ssl.get()) == tls.get(); }},
      {"krX509_digest_length", [&] { return krX509_digest_length(info.get()) == 6; }},
      {"krX509_digest_data", [&] { return *krX509_digest_data(info.get()) == 'd'; }},
  };
  for (const auto &[name, call] : rows) {
    Trace trace;
    const bool right = call();
    EXPECT_TRUE(right) << name;
    EXPECT_EQ(trace.lines(), tagged(std::string("@") + name));
  }
}
