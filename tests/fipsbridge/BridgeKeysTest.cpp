// RSA, DSA and DH through the FIPS module, against objects with OpenSSL's own methods.
#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/krFIPSDH.h"
#include "fipsbridge/krFIPSDSA.h"
#include "fipsbridge/krFIPSRSA.h"
#include "support/Bridge.h"
#include "support/Keys.h"
#include "support/Sweep.h"

#include <algorithm>
#include <set>
#include <stdexcept>

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

Bytes secret(DH *own, const DH *peer) {
  Bytes bytes(static_cast<std::size_t>(DH_size(own)));
  bytes.resize(static_cast<std::size_t>(std::max(0, DH_compute_key(bytes.data(), DH_get0_pub_key(peer), own))));
  return bytes;
}

/// Keys of OpenSSL's own, made before the bridge is registered, and their twins behind it.
struct KeyPairs {
  KeyPairs() {
    DSA_generate_key(dsa.get());
    DH_generate_key(dh.get());
  }

  EVP_PKEY *owner = softwareKey(Kind::rsa);
  RSA *rsa = EVP_PKEY_get0_RSA(owner);
  DSAPtr dsa = newDsa();
  DHPtr dh = newDh();
};

struct Keys : KeyPairs {
  explicit Keys(bool withModule = true) : bridge(withModule) {
    DSA_set0_key(dsaTwin.get(), BN_dup(DSA_get0_pub_key(dsa.get())), BN_dup(DSA_get0_priv_key(dsa.get())));
    DH_generate_key(dhTwin.get());
    referenceModule::calls();
    bridge.trace.clear();
  }

  Bridge bridge;
  EVPPKeyPtr wholeTwin = wholeCopy(owner);
  EVPPKeyPtr publicTwin = publicHalf(owner);
  RSA *rsaTwin = EVP_PKEY_get0_RSA(wholeTwin.get());
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
  EXPECT_TRUE(!made || (RSA_check_key(rsa.get()) == 1 && BN_cmp(RSA_get0_e(rsa.get()), e) == 0));
  return made;
}

/// What can be done with keys behind the bridge, and the entries that fail it. True on success.
struct Operation {
  const char *name;
  std::vector<const char *> entries;
  std::function<bool()> work;
};

std::vector<Operation> operations(const Keys &keys) {
  const std::shared_ptr<BIGNUM> e(word(65537).release(), BN_free);
  const auto encrypt = [](RSA *rsa) { return !run(RSA_public_encrypt, rsa, kDigest, RSA_PKCS1_PADDING).empty(); };
  const std::shared_ptr<DSA_SIG> signature(DSA_do_sign(kDigest.data(), 20, keys.dsa.get()), DSA_SIG_free);
  return {
      {"encrypt", {"RsaLoadPrivateKey", "RsaPublicEncrypt"}, [&keys, encrypt] { return encrypt(keys.rsaTwin); }},
      {"encrypt with a public key",
       {"RsaLoadPublicKey", "RsaPublicEncrypt"},
       [&keys, encrypt] { return encrypt(EVP_PKEY_get0_RSA(keys.publicTwin.get())); }},
      {"generate RSA", {"RsaGenerateKey", "RsaExportKey"}, [e] { return generateRsa(512, e.get()); }},
      {"sign",
       {"DsaLoadKey", "DsaSign"},
       [&keys] { return DSASigPtr(DSA_do_sign(kDigest.data(), 20, keys.dsaTwin.get())) != nullptr; }},
      {"verify",
       {"DsaLoadKey", "DsaVerify"},
       [&keys, signature] { return DSA_do_verify(kDigest.data(), 20, signature.get(), keys.dsaTwin.get()) == 1; }},
      {"generate DSA",
       {"DsaLoadKey", "DsaGenerateKey", "DsaExportKey"},
       [] {
         const DSAPtr dsa(DSA_new());
         giveGroup(dsa.get());
         return dsa && DSA_generate_key(dsa.get()) == 1 && DSA_get0_priv_key(dsa.get()) != nullptr;
       }},
      {"generate DSA parameters",
       {"DsaGenerateParameters", "DsaExportKey"},
       [] {
         const DSAPtr dsa(DSA_new());
         return dsa &&
                DSA_generate_parameters_ex(dsa.get(), 512, kModuleSeed.data(), 20, nullptr, nullptr, nullptr) == 1;
       }},
      {"generate DH", {"DhCreate", "DhGenerateKey"}, [&keys] { return DH_generate_key(keys.dhTwin.get()) == 1; }},
      {"agree", {"DhComputeKey"}, [&keys] { return !secret(keys.dhTwin.get(), keys.dh.get()).empty(); }},
      {"generate DH parameters",
       {"DhCreate", "DhGetPrime"},
       [] {
         const DHPtr dh(DH_new());
         return dh && DH_generate_parameters_ex(dh.get(), 128, 2, nullptr) == 1;
       }},
  };
}

std::string bytesOf(const BIGNUM *number) { return " in " + std::to_string(BN_num_bytes(number)); }

const std::string kCreates = " context cell 8 generator";

} // namespace

TEST(BridgeKeys, RsaWorksWithEveryPadding) {
  Keys keys;
  struct Row {
    RsaStep there;
    int padding;
    RsaStep back;
    int backPadding;
    std::size_t length;
  };
  const Row rows[]{{RSA_public_encrypt, RSA_NO_PADDING, RSA_private_decrypt, RSA_NO_PADDING, 256},
                   {RSA_public_encrypt, RSA_PKCS1_PADDING, RSA_private_decrypt, RSA_PKCS1_PADDING, 100},
                   {RSA_public_encrypt, RSA_PKCS1_OAEP_PADDING, RSA_private_decrypt, RSA_PKCS1_OAEP_PADDING, 100},
                   {RSA_public_encrypt, RSA_SSLV23_PADDING, RSA_private_decrypt, RSA_PKCS1_PADDING, 100},
                   {RSA_public_encrypt, RSA_PKCS1_PADDING, RSA_private_decrypt, RSA_SSLV23_PADDING, 100},
                   {RSA_private_encrypt, RSA_PKCS1_PADDING, RSA_public_decrypt, RSA_PKCS1_PADDING, 100},
                   {RSA_private_encrypt, RSA_NO_PADDING, RSA_public_decrypt, RSA_NO_PADDING, 256}};
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.padding << ' ' << row.backPadding);
    Bytes message(row.length, 0x6d);
    message[0] = 0; // below the modulus
    for (const auto &[here, there] : {std::pair(keys.rsa, keys.rsaTwin), {keys.rsaTwin, keys.rsa}}) {
      EXPECT_EQ(run(row.back, there, run(row.there, here, message, row.padding), row.backPadding), message);
    }
  }
  referenceModule::calls();
  for (const RsaStep step : {RSA_public_encrypt, RSA_public_decrypt, RSA_private_encrypt, RSA_private_decrypt}) {
    unsigned char out[256];
    for (const int padding : {RSA_X931_PADDING, RSA_PKCS1_PSS_PADDING, 0, -1}) {
      EXPECT_EQ(step(20, kDigest.data(), out, keys.rsaTwin, padding), -1);
    }
  }
  EXPECT_EQ(referenceModule::calls(), "");
}

TEST(BridgeKeys, RsaIsLoadedBeforeEachOperation) {
  const Keys keys;
  const RSA *rsa = keys.rsa;
  const auto halves = [&](const BIGNUM *d) {
    return bytesOf(RSA_get0_n(rsa)) + bytesOf(RSA_get0_e(rsa)) + bytesOf(RSA_get0_p(rsa)) + bytesOf(RSA_get0_q(rsa)) +
           bytesOf(d);
  };
  const std::string whole =
      halves(RSA_get0_d(rsa)) + bytesOf(RSA_get0_dmp1(rsa)) + bytesOf(RSA_get0_dmq1(rsa)) + bytesOf(RSA_get0_iqmp(rsa));
  run(RSA_private_encrypt, keys.rsaTwin, kDigest, RSA_PKCS1_PADDING);
  EXPECT_EQ(referenceModule::calls("Rsa"),
            "RsaFree cell|RsaLoadPrivateKey" + kCreates + whole + "|RsaPrivateEncrypt cell in 20 1 out [0]");
  run(RSA_public_encrypt, EVP_PKEY_get0_RSA(keys.publicTwin.get()), kDigest, RSA_PKCS1_OAEP_PADDING);
  EXPECT_EQ(referenceModule::calls("Rsa"), "RsaFree cell|RsaLoadPublicKey" + kCreates + bytesOf(RSA_get0_n(rsa)) +
                                               bytesOf(RSA_get0_e(rsa)) + "|RsaPublicEncrypt cell in 20 3 out [0]");

  const RSAPtr partial(RSA_new()); // factors, but no CRT values
  RSA_set0_key(partial.get(), BN_dup(RSA_get0_n(rsa)), BN_dup(RSA_get0_e(rsa)), BN_dup(RSA_get0_d(rsa)));
  RSA_set0_factors(partial.get(), BN_dup(RSA_get0_p(rsa)), BN_dup(RSA_get0_q(rsa)));
  EXPECT_EQ(qvFipsRsaLoadKey(partial.get()), 0);
  EXPECT_EQ(referenceModule::calls("Rsa"),
            "RsaFree cell|RsaLoadPrivateKey" + kCreates + halves(RSA_get0_d(rsa)) + " null 0 null 0 null 0");
  EXPECT_EQ(qvFipsRsaLoadKey(keys.rsaTwin), 0);
  const auto *cell = static_cast<krOpenSSL::KeyHandleCell *>(RSA_get_ex_data(keys.rsaTwin, qvFipsRsaIndex()));
  EXPECT_EQ(RSA_check_key(static_cast<RSA *>(cell->handle)), 1); // each number came to its place
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

TEST(BridgeKeys, RsaIsGenerated) {
  const Bridge bridge;
  const BIGNUMPtr e = word(65537);
  RSAPtr rsa(RSA_new());
  EXPECT_EQ(RSA_generate_key_ex(rsa.get(), 1030, e.get(), nullptr), 1);
  std::string exported = "RsaExportKey cell";
  for (int i = 0; i < 8; ++i) {
    exported += " out [129]";
  }
  EXPECT_EQ(referenceModule::calls("Rsa"),
            "RsaFree cell|RsaGenerateKey" + kCreates + " 1030 65537u|" + exported + "|RsaGenerateKeyDone cell");
  EXPECT_EQ(RSA_check_key(rsa.get()), 1);
  rsa.reset();
  EXPECT_EQ(referenceModule::calls("Rsa"), "RsaFree cell");
  EXPECT_EQ(referenceModule::liveKeys(), 0);

  const BIGNUMPtr tooLarge = word(1);
  BN_lshift(tooLarge.get(), tooLarge.get(), 70);
  for (const auto &refused : {word(0xFFFFFFFF), word(0x1FFFFFFFF)}) {
    EXPECT_FALSE(generateRsa(1024, refused.get()));
  }
  EXPECT_FALSE(generateRsa(1024, tooLarge.get()));
  EXPECT_EQ(referenceModule::calls("RsaGenerate"), "");
  for (const int bits : {0, -9, std::numeric_limits<int>::max()}) { // for the module to refuse
    EXPECT_FALSE(generateRsa(bits, e.get()));
    EXPECT_EQ(referenceModule::calls("RsaG"), "RsaGenerateKey" + kCreates + ' ' + std::to_string(bits) + " 65537u");
  }
}

TEST(BridgeKeys, DsaSignsAndVerifies) {
  Keys keys;
  const auto sign = [](const DSAPtr &dsa) { return DSASigPtr(DSA_do_sign(kDigest.data(), 20, dsa.get())); };
  const auto verify = [](const DSASigPtr &signature, const DSAPtr &dsa, const Bytes &digest) {
    return DSA_do_verify(digest.data(), 20, signature.get(), dsa.get());
  };
  const DSA *dsa = keys.dsa.get();
  const std::string load = "DsaLoadKey" + kCreates + bytesOf(DSA_get0_p(dsa)) + bytesOf(DSA_get0_q(dsa)) +
                           bytesOf(DSA_get0_g(dsa)) + bytesOf(DSA_get0_pub_key(dsa)) + bytesOf(DSA_get0_priv_key(dsa));
  const DSASigPtr made = sign(keys.dsaTwin);
  EXPECT_EQ(referenceModule::calls("Dsa"),
            "DsaFree cell|" + load + "|DsaSign cell in 20 out [" + std::to_string(DSA_size(dsa)) + "] null 0");
  EXPECT_EQ(verify(made, keys.dsa, kDigest), 1);
  const DSASigPtr own = sign(keys.dsa);
  EXPECT_EQ(verify(own, keys.dsaTwin, kDigest), 1);
  EXPECT_EQ(referenceModule::calls("Dsa"),
            "DsaFree cell|" + load + "|DsaVerify cell in 20 in " + std::to_string(i2d_DSA_SIG(own.get(), nullptr)));
  EXPECT_EQ(verify(own, keys.dsaTwin, Bytes(20)), 0);
  EXPECT_EQ(qvFipsDsaVerify(kDigest.data(), 20, nullptr, keys.dsaTwin.get()), 0);
  EXPECT_EQ(qvFipsDsaVerify(kDigest.data(), 20, own.get(), nullptr), 0);
  EXPECT_EQ(qvFipsDsaSign(kDigest.data(), 20, DSAPtr(DSA_new()).get()), nullptr); // no numbers at all
  for (const Fault fault : {Fault::garbles, Fault::overstates}) {
    referenceModule::fault = fault;
    EXPECT_EQ(sign(keys.dsaTwin), nullptr);
  }
  EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(BridgeKeys, DsaKeysAndParametersAreGenerated) {
  group();
  const Bridge bridge;

  const DSAPtr dsa = newDsa();
  EXPECT_EQ(referenceModule::calls("Dsa"), "DsaLoadKey" + kCreates + " null 0 null 0 null 0 null 0 null 0");
  EXPECT_EQ(DSA_generate_key(dsa.get()), 1);
  EXPECT_EQ(referenceModule::calls("Dsa"), "DsaFree cell|DsaLoadKey" + kCreates +
                                               " in 128 in 20 in 128 null 0 null 0|DsaGenerateKey cell|DsaExportKey "
                                               "cell null null null null null null out [128] out [20]");
  const BIGNUM *const numbers[]{DSA_get0_pub_key(dsa.get()), DSA_get0_priv_key(dsa.get())};
  const BIGNUMPtr before(BN_dup(numbers[1]));
  BN_set_flags(const_cast<BIGNUM *>(numbers[1]), BN_FLG_CONSTTIME);
  EXPECT_EQ(DSA_generate_key(dsa.get()), 1); // new values in the numbers that are there
  EXPECT_TRUE(DSA_get0_pub_key(dsa.get()) == numbers[0] && DSA_get0_priv_key(dsa.get()) == numbers[1]);
  EXPECT_NE(BN_cmp(numbers[1], before.get()), 0);
  EXPECT_NE(BN_get_flags(numbers[1], BN_FLG_CONSTTIME), 0);
  const DSASigPtr signature(DSA_do_sign(kDigest.data(), 20, dsa.get()));
  EXPECT_EQ(DSA_do_verify(kDigest.data(), 20, signature.get(), dsa.get()), 1);

  const DSAPtr made(DSA_new());
  referenceModule::calls();
  EXPECT_EQ(DSA_generate_key(made.get()), 0); // no group
  EXPECT_EQ(referenceModule::calls(), "");
  int counter = 0;
  unsigned long h = 0;
  EXPECT_EQ(DSA_generate_parameters_ex(made.get(), 512, kModuleSeed.data(), 20, &counter, &h, nullptr), 1);
  EXPECT_EQ(referenceModule::calls("Dsa"),
            "DsaFree cell|DsaGenerateParameters" + kCreates +
                " 512 in 20 null counter out|DsaExportKey cell out [64] out [64] out [64] null null null null");
  EXPECT_TRUE(counter == referenceModule::kCounter && h == static_cast<std::uint32_t>(referenceModule::kH));
  EXPECT_TRUE(BN_num_bits(DSA_get0_p(made.get())) == 512 && BN_num_bits(DSA_get0_q(made.get())) == 160);
  EXPECT_EQ(DSA_generate_key(made.get()), 1); // and so the three belong together
}

TEST(BridgeKeys, DhAgreesWithAPeer) {
  const Keys keys;
  DH *dh = keys.dhTwin.get();
  const Bytes agreed = secret(keys.dh.get(), dh);
  EXPECT_FALSE(agreed.empty());
  EXPECT_EQ(secret(dh, keys.dh.get()), agreed);
  const std::string peer = bytesOf(DH_get0_pub_key(keys.dh.get()));
  EXPECT_EQ(referenceModule::calls("Dh"), "DhComputeKey cell out [0] 128" + peer);
  EXPECT_EQ(BN_num_bits(DH_get0_priv_key(dh)), 1023);

  const BIGNUM *own = DH_get0_priv_key(dh);
  const BIGNUMPtr value(BN_dup(own));
  const BIGNUMPtr publicValue(BN_dup(DH_get0_pub_key(dh)));
  EXPECT_EQ(DH_generate_key(dh), 1);
  EXPECT_EQ(referenceModule::calls("Dh"),
            "DhFree cell|DhCreate" + kCreates + " in 128 in 128|DhGenerateKey cell out [128] 128 in 128");
  EXPECT_TRUE(DH_get0_priv_key(dh) == own && BN_cmp(own, value.get()) == 0);
  EXPECT_EQ(BN_cmp(DH_get0_pub_key(dh), publicValue.get()), 0);

  const DHPtr made(DH_new());
  EXPECT_EQ(DH_generate_key(made.get()), 0);
  EXPECT_EQ(secret(dh, made.get()).size() + referenceModule::calls("Dh").size(), 0U); // a peer without a key
  unsigned char out[128];
  EXPECT_EQ(qvFipsDhComputeKey(out, publicValue.get(), made.get()), -1); // no p
  for (const int generator : {0, -2}) {
    EXPECT_EQ(DH_generate_parameters_ex(made.get(), 256, generator, nullptr), 0);
  }
  EXPECT_EQ(referenceModule::calls("Dh"), "");
  EXPECT_EQ(DH_generate_parameters_ex(made.get(), 250, 258, nullptr), 1);
  EXPECT_EQ(referenceModule::calls("Dh"), "DhFree cell|DhCreate" + kCreates + " in 2 null 32|DhGetPrime cell out 32");
  EXPECT_TRUE(BN_num_bits(DH_get0_p(made.get())) == 256 && BN_is_word(DH_get0_g(made.get()), 258));
  EXPECT_EQ(DH_generate_key(made.get()), 1);
  const DHPtr unused = newDh();
  EXPECT_EQ(qvFipsDhComputeKey(out, publicValue.get(), unused.get()), -1);  // no module key yet
  EXPECT_EQ(qvFipsDhComputeKey(out, publicValue.get(), keys.dh.get()), -1); // no cell
}

TEST(BridgeKeys, EachEntryThatFailsFailsTheOperation) {
  const Keys keys;
  for (const auto &[name, entries, work] : operations(keys)) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(work());
    const long before = allocations::outstanding();
    for (const char *entry : entries) {
      referenceModule::failing = entry;
      EXPECT_FALSE(work()) << entry;
      referenceModule::failing.clear();
      EXPECT_TRUE(work()); // the module's copy of the key is there again
      EXPECT_EQ(allocations::outstanding(), before) << entry;
    }
    referenceModule::fault = Fault::overstates;
    EXPECT_EQ(work(), std::string_view(name) == "verify" || std::string_view(name) == "generate DH parameters");
    referenceModule::fault = Fault::none;
    EXPECT_EQ(ERR_peek_error(), 0U);
  }
}

TEST(BridgeKeys, OperationsSucceedOrFailWholeWhenAllocationsFail) {
  const Keys keys;
  for (const auto &[name, entries, work] : operations(keys)) {
    SCOPED_TRACE(name);
    sweep([&run = work] { run(); }, [&run = work] { EXPECT_TRUE(run()); });
  }
  // A number that cannot be made is told as the setter's refusal; nothing else is.
  std::set<std::string> told(keys.bridge.trace.lines().begin(), keys.bridge.trace.lines().end());
  std::erase_if(told, [](const std::string &line) { return line.find(" qvFips") == std::string::npos; });
  const Lines expected = tagged("qvFipsDhGenerateParameters: DH_set0_pqg failed to set value(s)|"
                                "qvFipsDsaGenerateKey: DSA_set0_key returned: 0|"
                                "qvFipsDsaGenerateParameters: DSA_set0_pqg returned: 0|"
                                "qvFipsRsaGenerateKey: RSA_set0_crt_params returned: 0|"
                                "qvFipsRsaGenerateKey: RSA_set0_factors returned: 0|"
                                "qvFipsRsaGenerateKey: RSA_set0_key returned: 0");
  EXPECT_EQ(Lines(told.begin(), told.end()), expected);
}

TEST(BridgeKeys, WithoutAReadyModuleNothingWorks) {
  const Keys keys(false);
  for (const bool attached : {false, true}) { // attached, but without a generator
    SCOPED_TRACE(attached);
    state::fipsModule = attached ? &referenceModule::table : nullptr;
    referenceModule::failing = "DsaLoadKey"; // or it would keep the empty keys, which are freed when it is ready
    for (const auto &[name, entries, work] : operations(keys)) {
      EXPECT_FALSE(work()) << name;
    }
    unsigned char out[256];
    const BIGNUM *peer = DH_get0_pub_key(keys.dh.get());
    EXPECT_EQ(DH_compute_key(out, peer, keys.dhTwin.get()), 0); // not -1
    EXPECT_EQ(RSA_private_encrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_PKCS1_PADDING), -1);
    EXPECT_TRUE(attached || qvFipsRsaLoadKey(keys.rsaTwin) == -53);
  }
  EXPECT_TRUE(qvFipsRsaInit(nullptr) == 0 && qvFipsRsaFinish(nullptr) == 0);
  EXPECT_TRUE(qvFipsDsaInit(nullptr) == 0 && qvFipsDhFinish(nullptr) == 0);
  EXPECT_TRUE(qvFipsRsaFinish(keys.rsa) == 1);       // no cell
  EXPECT_TRUE(qvFipsDhInit(keys.dhTwin.get()) == 1); // in place of the cell that is there
  const std::string made = referenceModule::calls();
  for (const auto *kind : {"Rsa", "Rng", "Dh", "DsaFree", "DsaSign", "DsaVerify", "DsaGenerate"}) {
    EXPECT_EQ(made.find(kind), std::string::npos) << kind;
  }
}

TEST(BridgeKeys, RegisteredCallbacksComeFirst) {
  for (const bool withModule : {false, true}) {
    const Keys keys(withModule);
    krEngineSetRSAPrivateKeyOpCallback([](int length, auto...) { return length + 1; }, 1);
    krEngineSetRSAPrivateKeyOpCallback([](int length, auto...) { return length + 2; }, 0);
    krEngineSetDSAPrivateKeyOpCallback([](const unsigned char *, int, DSA *) { return DSA_SIG_new(); });
    unsigned char out[256];
    EXPECT_EQ(RSA_private_encrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_X931_PADDING), 21);
    EXPECT_EQ(RSA_private_decrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_X931_PADDING), 22);
    EXPECT_NE(DSASigPtr(DSA_do_sign(kDigest.data(), 20, keys.dsaTwin.get())), nullptr);
    krEngineSetRSAPrivateKeyOpCallback([](auto...) -> int { throw std::runtime_error("down"); }, 1);
    EXPECT_EQ(RSA_private_encrypt(20, kDigest.data(), out, keys.rsaTwin, RSA_PKCS1_PADDING), -1);
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
