// RSA, DSA and DH through the FIPS module, against objects with OpenSSL's own methods.
#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/krFIPSDH.h"
#include "fipsbridge/krFIPSDSA.h"
#include "fipsbridge/krFIPSRSA.h"
#include "support/Bridge.h"
#include "support/Keys.h"
#include "support/Sweep.h"

#include <algorithm>
#include <sstream>

namespace {

using namespace krTest;
using krOpenSSL::BIGNUMPtr;
using krOpenSSL::DHPtr;
using krOpenSSL::DSAPtr;
using krOpenSSL::DSASigPtr;
using krOpenSSL::RSAPtr;
using referenceModule::Fault;
namespace state = krOpenSSL::state;

const Bytes kDigest(20, 0x2b);
const Bytes kModuleSeed(20, 0x5a);

BIGNUMPtr word(std::uint64_t value) {
  BIGNUMPtr number(BN_new());
  BN_set_word(number.get(), value);
  return number;
}

/// The group of RFC 5114, 2.1, with a q of 160 bits. The first call has to come before the bridge's.
const DH *group() {
  static const DHPtr made(DH_get_1024_160());
  return made.get();
}

void giveGroup(DSA *dsa) {
  const allocations::Spared spared;
  if (dsa != nullptr) {
    DSA_set0_pqg(dsa, BN_dup(DH_get0_p(group())), BN_dup(DH_get0_q(group())), BN_dup(DH_get0_g(group())));
  }
}

DSAPtr newDsa() {
  DSAPtr dsa(DSA_new());
  giveGroup(dsa.get());
  return dsa;
}

DHPtr newDh() {
  DHPtr dh(DH_new());
  DH_set0_pqg(dh.get(), BN_dup(DH_get0_p(group())), nullptr, BN_dup(DH_get0_g(group())));
  return dh;
}

template <class Key, class Generate> Key generated(Key key, Generate generate) {
  generate(key.get());
  return key;
}

Bytes secret(DH *own, const DH *peer) {
  Bytes bytes(static_cast<std::size_t>(DH_size(own)));
  bytes.resize(static_cast<std::size_t>(std::max(0, DH_compute_key(bytes.data(), DH_get0_pub_key(peer), own))));
  return bytes;
}

DSASigPtr sign(const DSAPtr &dsa) { return DSASigPtr(DSA_do_sign(kDigest.data(), 20, dsa.get())); }

int verify(const DSASigPtr &signature, const DSAPtr &dsa, const Bytes &digest = kDigest) {
  return DSA_do_verify(digest.data(), 20, signature.get(), dsa.get());
}

/// Keys of OpenSSL's own, made before the bridge is registered, and their twins behind it.
struct Keys {
  explicit Keys(bool withModule = true) : bridge(withModule) {
    DSA_set0_key(dsaTwin.get(), BN_dup(DSA_get0_pub_key(dsa.get())), BN_dup(DSA_get0_priv_key(dsa.get())));
    DH_generate_key(dhTwin.get());
    referenceModule::calls();
    bridge.trace.clear();
  }

  EVP_PKEY *owner = softwareKey(Kind::rsa);
  RSA *rsa = rsaOf(owner);
  DSAPtr dsa = generated(newDsa(), DSA_generate_key);
  DHPtr dh = generated(newDh(), DH_generate_key);
  DSASigPtr signature = sign(dsa);
  Bridge bridge;
  EVPPKeyPtr wholeTwin = wholeCopy(owner);
  EVPPKeyPtr publicTwin = publicHalf(owner);
  RSA *rsaTwin = rsaOf(wholeTwin.get());
  DSAPtr dsaTwin = newDsa();
  DHPtr dhTwin = newDh();
};

using RsaStep = int (*)(int, const unsigned char *, unsigned char *, RSA *, int);

Bytes run(RsaStep step, RSA *rsa, const Bytes &in, int padding) {
  Bytes out(static_cast<std::size_t>(RSA_size(rsa)));
  const int written = step(static_cast<int>(in.size()), in.data(), out.data(), rsa, padding);
  out.resize(static_cast<std::size_t>(std::max(0, written)));
  return out;
}

bool generateRsa(int bits, const BIGNUM *e) {
  const RSAPtr rsa(RSA_new());
  const bool made = rsa && RSA_generate_key_ex(rsa.get(), bits, const_cast<BIGNUM *>(e), nullptr) == 1;
  const allocations::Spared spared;
  if (made) {
    EXPECT_EQ(RSA_check_key(rsa.get()), 1);
    EXPECT_EQ(BN_cmp(RSA_get0_e(rsa.get()), e), 0);
  }
  return made;
}

/// What can be done with keys behind the bridge, and the entries that it takes. True on success.
struct Operation {
  std::string entries;
  std::function<bool()> work;
};

std::vector<Operation> operations(const Keys &keys) {
  const std::shared_ptr<BIGNUM> e(word(65537).release(), BN_free);
  const auto encrypt = [](RSA *rsa) { return !run(RSA_public_encrypt, rsa, kDigest, RSA_PKCS1_PADDING).empty(); };
  return {
      {"RsaFree RsaLoadPrivateKey RsaPublicEncrypt", [&keys, encrypt] { return encrypt(keys.rsaTwin); }},
      {"RsaFree RsaLoadPublicKey RsaPublicEncrypt", [&keys, encrypt] { return encrypt(rsaOf(keys.publicTwin.get())); }},
      {"RsaFree RsaGenerateKey RsaExportKey RsaGenerateKeyDone RsaFree", [e] { return generateRsa(512, e.get()); }},
      {"DsaFree DsaLoadKey DsaSign", [&keys] { return sign(keys.dsaTwin) != nullptr; }},
      {"DsaFree DsaLoadKey DsaVerify", [&keys] { return verify(keys.signature, keys.dsaTwin) == 1; }},
      {"DsaLoadKey DsaFree DsaLoadKey DsaGenerateKey DsaExportKey DsaFree",
       [] {
         const DSAPtr dsa(DSA_new());
         giveGroup(dsa.get());
         const bool made = dsa && DSA_generate_key(dsa.get()) == 1;
         EXPECT_TRUE(!made || DSA_get0_priv_key(dsa.get()) != nullptr);
         return made;
       }},
      {"DsaLoadKey DsaFree DsaGenerateParameters DsaExportKey DsaFree",
       [] {
         const DSAPtr dsa(DSA_new());
         return dsa &&
                DSA_generate_parameters_ex(dsa.get(), 512, kModuleSeed.data(), 20, nullptr, nullptr, nullptr) == 1;
       }},
      {"DhFree DhCreate DhGenerateKey", [&keys] { return DH_generate_key(keys.dhTwin.get()) == 1; }},
      {"DhComputeKey", [&keys] { return !secret(keys.dhTwin.get(), keys.dh.get()).empty(); }},
      {"DhFree DhCreate DhGetPrime DhFree",
       [] {
         const DHPtr dh(DH_new());
         return dh && DH_generate_parameters_ex(dh.get(), 128, 2, nullptr) == 1;
       }},
  };
}

} // namespace

TEST(BridgeKeys, RsaWorksWithEveryPadding) {
  const Keys keys;
  const struct {
    RsaStep step, back;
    int padding, backPadding;
    std::size_t length;
  } rows[]{{RSA_public_encrypt, RSA_private_decrypt, RSA_NO_PADDING, RSA_NO_PADDING, 256},
           {RSA_public_encrypt, RSA_private_decrypt, RSA_PKCS1_OAEP_PADDING, RSA_PKCS1_OAEP_PADDING, 100},
           {RSA_public_encrypt, RSA_private_decrypt, kSslv23Padding, RSA_PKCS1_PADDING, 100},
           {RSA_private_encrypt, RSA_public_decrypt, RSA_PKCS1_PADDING, RSA_PKCS1_PADDING, 100}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.padding);
    Bytes message(row.length, 0x6d);
    message[0] = 0; // below the modulus
    if (!kOpenSSL3 || row.padding != kSslv23Padding) {
      EXPECT_EQ(run(row.back, keys.rsaTwin, run(row.step, keys.rsa, message, row.padding), row.backPadding), message);
    }
    EXPECT_EQ(run(row.back, keys.rsa, run(row.step, keys.rsaTwin, message, row.padding), row.backPadding), message);
  }
  const Bytes rolledBack = run(RSA_public_encrypt, keys.rsa, kDigest, kSslv23Padding);
  EXPECT_EQ(run(RSA_private_decrypt, keys.rsaTwin, rolledBack, kSslv23Padding), Bytes());
  ERR_clear_error(); // OpenSSL 3 does not know the padding
  referenceModule::calls();
  for (const int padding : {RSA_X931_PADDING, RSA_PKCS1_PSS_PADDING, 0, -1}) {
    EXPECT_EQ(run(RSA_public_encrypt, keys.rsaTwin, kDigest, padding), Bytes());
  }
  EXPECT_EQ(referenceModule::calls(), "");
}

TEST(BridgeKeys, RsaLoadsWhatThereIs) {
  const Keys keys;
  const RSA *rsa = keys.rsa;
  const RSAPtr partial(RSA_new()); // factors, but no CRT values
  RSA_set0_key(partial.get(), BN_dup(RSA_get0_n(rsa)), BN_dup(RSA_get0_e(rsa)), BN_dup(RSA_get0_d(rsa)));
  RSA_set0_factors(partial.get(), BN_dup(RSA_get0_p(rsa)), BN_dup(RSA_get0_q(rsa)));
  for (RSA *whole : {partial.get(), keys.rsaTwin}) {
    EXPECT_EQ(qvFipsRsaLoadKey(whole), 0);
    const auto *cell = static_cast<krOpenSSL::KeyHandleCell *>(RSA_get_ex_data(whole, qvFipsRsaIndex()));
    EXPECT_EQ(RSA_check_key(static_cast<RSA *>(cell->handle)), 1); // each number came to its place
  }
  referenceModule::failing = "RsaLoadPrivateKey";
  EXPECT_EQ(qvFipsRsaLoadKey(keys.rsaTwin), referenceModule::kFailure);
  referenceModule::calls();

  // Refused before the module hears of it.
  allocations::failNth(1);
  EXPECT_EQ(qvFipsRsaLoadKey(keys.rsaTwin), -55);
  RSA_set0_factors(partial.get(), word(0).release(), BN_dup(RSA_get0_q(rsa)));
  EXPECT_EQ(qvFipsRsaLoadKey(partial.get()), -53);
  EXPECT_EQ(qvFipsRsaLoadKey(keys.rsa), -53); // no cell
  EXPECT_EQ(qvFipsRsaLoadKey(nullptr), -53);
  EXPECT_EQ(qvFipsDsaLoadKey(keys.dsa.get()), -53);
  EXPECT_EQ(referenceModule::calls(), "");
}

TEST(BridgeKeys, RsaIsGeneratedWithExponentsOf32Bits) {
  const Bridge bridge;
  const BIGNUMPtr e = word(65537);
  EXPECT_TRUE(generateRsa(1030, e.get()));
  EXPECT_EQ(referenceModule::liveKeys(), 0);
  referenceModule::calls();
  for (const char *refused : {"FFFFFFFF", "1FFFFFFFF", "400000000000000000"}) {
    BIGNUM *number = nullptr;
    BN_hex2bn(&number, refused);
    EXPECT_FALSE(generateRsa(1024, BIGNUMPtr(number).get()));
  }
  EXPECT_EQ(referenceModule::calls("RsaGenerate"), "");
  for (const int bits : {0, -9, std::numeric_limits<int>::max()}) { // for the module to refuse
    EXPECT_FALSE(generateRsa(bits, e.get()));
    EXPECT_EQ(referenceModule::calls("RsaG"), "RsaGenerateKey");
  }
}

TEST(BridgeKeys, DsaSignsAndVerifies) {
  const Keys keys;
  EXPECT_EQ(verify(sign(keys.dsaTwin), keys.dsa), 1);
  EXPECT_EQ(verify(keys.signature, keys.dsaTwin), 1);
  EXPECT_EQ(verify(keys.signature, keys.dsaTwin, Bytes(20)), 0);
  EXPECT_EQ(qvFipsDsaVerify(kDigest.data(), 20, nullptr, keys.dsaTwin.get()), 0);
  EXPECT_EQ(qvFipsDsaVerify(kDigest.data(), 20, keys.signature.get(), nullptr), 0);
  EXPECT_EQ(sign(DSAPtr(DSA_new())), nullptr); // no numbers at all
  for (const Fault fault : {Fault::garbles, Fault::unpads}) {
    referenceModule::fault = fault;
    EXPECT_EQ(sign(keys.dsaTwin), nullptr);
  }
  EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(BridgeKeys, DsaKeysAndParametersAreGenerated) {
  group();
  const Bridge bridge;
  const DSAPtr dsa = generated(newDsa(), DSA_generate_key);
  const BIGNUM *const numbers[]{DSA_get0_pub_key(dsa.get()), DSA_get0_priv_key(dsa.get())};
  const BIGNUMPtr before(BN_dup(numbers[1]));
  BN_set_flags(const_cast<BIGNUM *>(numbers[1]), BN_FLG_CONSTTIME | BN_FLG_SECURE);
  EXPECT_EQ(DSA_generate_key(dsa.get()), 1); // new values in the numbers that are there
  EXPECT_EQ(DSA_get0_pub_key(dsa.get()), numbers[0]);
  EXPECT_EQ(DSA_get0_priv_key(dsa.get()), numbers[1]);
  EXPECT_NE(BN_cmp(numbers[1], before.get()), 0);
  EXPECT_EQ(BN_get_flags(numbers[1], BN_FLG_CONSTTIME | BN_FLG_SECURE), BN_FLG_CONSTTIME | BN_FLG_SECURE);
  EXPECT_EQ(verify(sign(dsa), dsa), 1);

  const DSAPtr made(DSA_new());
  referenceModule::calls();
  EXPECT_EQ(DSA_generate_key(made.get()), 0); // no group
  EXPECT_EQ(referenceModule::calls(), "");
  int counter = 0;
  unsigned long h = 0;
  constexpr int kDsaBits = kOpenSSL3 ? 1024 : 512; // OpenSSL 3, which plays the module, makes keys from here on
  EXPECT_EQ(DSA_generate_parameters_ex(made.get(), kDsaBits, kModuleSeed.data(), 20, &counter, &h, nullptr), 1);
  EXPECT_EQ(counter, referenceModule::kCounter);
  EXPECT_EQ(h, static_cast<std::uint32_t>(referenceModule::kH));
  EXPECT_EQ(BN_num_bits(DSA_get0_p(made.get())), kDsaBits);
  EXPECT_EQ(DSA_generate_key(made.get()), 1); // and so the three belong together
}

TEST(BridgeKeys, DhAgreesWithAPeer) {
  const Keys keys;
  DH *dh = keys.dhTwin.get();
  const Bytes agreed = secret(keys.dh.get(), dh);
  EXPECT_FALSE(agreed.empty());
  EXPECT_EQ(secret(dh, keys.dh.get()), agreed);
  EXPECT_EQ(BN_num_bits(DH_get0_priv_key(dh)), 1023);
  const BIGNUM *own = DH_get0_priv_key(dh);
  EXPECT_EQ(DH_generate_key(dh), 1); // the public half anew
  EXPECT_EQ(DH_get0_priv_key(dh), own);
  EXPECT_EQ(secret(keys.dh.get(), dh), agreed);

  const DHPtr made(DH_new());
  const BIGNUM *peer = DH_get0_pub_key(keys.dh.get());
  unsigned char out[128];
  referenceModule::calls();
  EXPECT_EQ(DH_generate_key(made.get()), 0);
  EXPECT_EQ(qvFipsDhComputeKey(out, peer, made.get()), -1);             // no p
  EXPECT_EQ(qvFipsDhComputeKey(out, nullptr, dh), -1);                  // a peer without a key
  EXPECT_EQ(qvFipsDhComputeKey(out, peer, keys.dh.get()), -1);          // no cell
  EXPECT_EQ(DH_generate_parameters_ex(made.get(), 256, 0, nullptr), 0); // no generator
  EXPECT_EQ(DH_generate_parameters_ex(made.get(), 256, -2, nullptr), 0);
  EXPECT_EQ(referenceModule::calls("Dh"), "");
  constexpr int kDhBits = kOpenSSL3 ? 512 : 256; // the same
  EXPECT_EQ(DH_generate_parameters_ex(made.get(), kDhBits - 6, 258, nullptr), 1);
  EXPECT_EQ(BN_num_bits(DH_get0_p(made.get())), kDhBits);
  EXPECT_EQ(BN_get_word(DH_get0_g(made.get())), 258U);
  EXPECT_EQ(DH_generate_key(made.get()), 1);
  EXPECT_EQ(secret(newDh().get(), keys.dh.get()), Bytes()); // no module key yet
}

TEST(BridgeKeys, EachEntryThatFailsFailsTheOperation) {
  const Keys keys;
  for (const auto &[entries, work] : operations(keys)) {
    SCOPED_TRACE(entries);
    EXPECT_TRUE(work());
    EXPECT_EQ(referenceModule::calls(entries.substr(0, 2)), entries); // without what random numbers took
    const long before = allocations::outstanding();
    std::istringstream stream(entries);
    stream.ignore(entries.starts_with("DsaLoadKey") ? 10 : 0); // the empty key of a new object, which may be missing
    for (std::string entry; stream >> entry;) {
      if (!entry.ends_with("Free")) {
        referenceModule::failing = entry;
        EXPECT_EQ(work(), entry.ends_with("Done")) << entry;
        referenceModule::failing.clear();
        EXPECT_TRUE(work()); // the module's copy of the key is there again
        EXPECT_EQ(allocations::outstanding(), before) << entry;
      }
    }
    for (const Fault fault : {Fault::overstates, Fault::negates}) {
      referenceModule::fault = fault;
      EXPECT_EQ(work(), entries.ends_with("DsaVerify") || entries.starts_with("DhFree DhCreate DhGetPrime"));
    }
    referenceModule::fault = Fault::none;
    EXPECT_EQ(ERR_peek_error(), 0U);
    referenceModule::calls();
  }
}

TEST(BridgeKeys, OperationsSucceedOrFailWholeWhenAllocationsFail) {
  const Keys keys;
  for (const auto &[entries, work] : operations(keys)) {
    SCOPED_TRACE(entries);
    sweep([&run = work] { run(); }, [&run = work] { EXPECT_TRUE(run()); });
  }
  // A number that cannot be made is told as the setter's refusal.
  const Lines &told = keys.bridge.trace.lines();
  for (const std::string &line : tagged("qvFipsDhGenerateParameters: DH_set0_pqg failed to set value(s)|"
                                        "qvFipsDsaGenerateKey: DSA_set0_key returned: 0|"
                                        "qvFipsDsaGenerateParameters: DSA_set0_pqg returned: 0|"
                                        "qvFipsRsaGenerateKey: RSA_set0_crt_params returned: 0|"
                                        "qvFipsRsaGenerateKey: RSA_set0_factors returned: 0|"
                                        "qvFipsRsaGenerateKey: RSA_set0_key returned: 0")) {
    EXPECT_NE(std::ranges::count(told, line), 0) << line;
  }
}

TEST(BridgeKeys, WithoutAReadyModuleNothingWorks) {
  const Keys keys(false);
  for (const bool attached : {false, true}) { // attached, but without a generator
    state::fipsModule = attached ? &referenceModule::table : nullptr;
    referenceModule::failing = "DsaLoadKey"; // or it would keep the empty keys, which are freed when it is ready
    for (const auto &[entries, work] : operations(keys)) {
      EXPECT_FALSE(work()) << entries << attached;
    }
    unsigned char out[256];
    EXPECT_EQ(DH_compute_key(out, DH_get0_pub_key(keys.dh.get()), keys.dhTwin.get()), 0); // not -1
    EXPECT_EQ(RSA_private_encrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_PKCS1_PADDING), -1);
    EXPECT_TRUE(attached || qvFipsRsaLoadKey(keys.rsaTwin) == -53);
  }
  EXPECT_EQ(qvFipsRsaInit(nullptr) + qvFipsDsaInit(nullptr) + qvFipsDhFinish(nullptr), 0);
  EXPECT_EQ(qvFipsRsaFinish(keys.rsa), 1); // no cell
  const long before = allocations::outstanding();
  EXPECT_EQ(qvFipsDhInit(keys.dhTwin.get()), 1); // in place of the cell that is there
  EXPECT_EQ(allocations::outstanding(), before);
  EXPECT_EQ(referenceModule::calls("R"), "");
}

TEST(BridgeKeys, RegisteredCallbacksComeFirst) {
  for (const bool withModule : {false, true}) {
    const Keys keys(withModule);
    unsigned char out[256];
    krEngineSetRSAPrivateKeyOpCallback([](int length, auto...) { return length + 1; }, 1);
    krEngineSetRSAPrivateKeyOpCallback([](int length, auto...) { return length + 2; }, 0);
    krEngineSetDSAPrivateKeyOpCallback([](auto...) { return decoded(d2i_DSA_SIG, derSignature(20, 20)); });
    EXPECT_EQ(RSA_private_encrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_X931_PADDING), 21);
    EXPECT_EQ(RSA_private_decrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_X931_PADDING), 22);
    EXPECT_NE(sign(keys.dsaTwin), nullptr);
    EXPECT_EQ(RSA_private_encrypt(256, kDigest.data(), out, keys.rsaTwin, RSA_NO_PADDING), -1); // 257
    EXPECT_EQ(RSA_private_decrypt(255, kDigest.data(), out, keys.rsaTwin, RSA_NO_PADDING), -1);
    krEngineSetDSAPrivateKeyOpCallback([](auto...) { return decoded(d2i_DSA_SIG, derSignature(21, 20)); });
    EXPECT_EQ(sign(keys.dsaTwin), nullptr);
    krEngineSetDSAPrivateKeyOpCallback([](const unsigned char *, int, DSA *) { return DSA_SIG_new(); }); // no numbers
    EXPECT_EQ(sign(keys.dsaTwin), nullptr);
    EXPECT_EQ(qvFipsDsaSign(kDigest.data(), 20, nullptr), nullptr);
    EXPECT_EQ(qvFipsRsaPrivateEncrypt(20, kDigest.data(), out, nullptr, RSA_NO_PADDING), -1);
    EXPECT_EQ(referenceModule::calls(), "");
    krEngineSetRSAPrivateKeyOpCallback(nullptr, 1);
    krEngineSetRSAPrivateKeyOpCallback(nullptr, 0);
    krEngineSetDSAPrivateKeyOpCallback(nullptr);
  }
}

// A key outlives the unload, and the cell that it carries goes with it.
TEST(BridgeKeys, KeysMayOutliveTheUnload) {
  RSAPtr rsa;
  {
    const Bridge bridge;
    rsa.reset(RSA_new());
  }
  unsigned char out[16];
  EXPECT_EQ(RSA_public_encrypt(4, kDigest.data(), out, rsa.get(), RSA_PKCS1_PADDING), -1);
}
