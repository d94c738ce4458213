// The bridge's keys over a hostile FIPS module: any numbers to be loaded, and a module that fails, leaves errors, and
// claims any length for what it wrote.
#include "Encoding.h"
#include "HostileModule.h"

#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/KeyCells.h"
#include "fipsbridge/krFIPSDH.h"
#include "fipsbridge/krFIPSDSA.h"
#include "fipsbridge/krFIPSRSA.h"

#include <algorithm>
#include <iterator>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;
using namespace krFuzz::hostileModule;

/// A number, or none. One in a while is 0, which cannot be loaded.
BIGNUM *takeNumber(bool optional = true) {
  if (optional && input->ConsumeBool()) {
    return nullptr;
  }
  const Bytes bytes = takeBytes(*input, 80);
  BIGNUM *number = BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr);
  if (input->ConsumeIntegral<unsigned char>() % 16 != 1) {
    BN_add_word(number, BN_is_zero(number) ? 3 : 0);
  }
  return number;
}

Number bytesOf(const BIGNUM *number) {
  if (number == nullptr) {
    return std::nullopt;
  }
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, bytes.data());
  return bytes;
}

bool canBeLoaded(const std::vector<const BIGNUM *> &numbers) {
  return std::none_of(numbers.begin(), numbers.end(),
                      [](auto *number) { return number != nullptr && BN_is_zero(number); });
}

void checkLoaded(const std::vector<const BIGNUM *> &numbers) {
  std::vector<Number> expected;
  std::transform(numbers.begin(), numbers.end(), std::back_inserter(expected), bytesOf);
  require(loaded == expected, "the module gets the key's numbers");
}

void checkTaken(const std::vector<const BIGNUM *> &numbers) {
  require(numbers.size() == given.size(), "every number was asked for");
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    const BIGNUMPtr number(BN_bin2bn(given[i].room.data(), static_cast<int>(given[i].claim), nullptr));
    require(BN_cmp(numbers[i], number.get()) == 0, "the key gets the module's numbers");
  }
}

bool allGiven(std::size_t count) {
  return !failed && given.size() == count &&
         std::all_of(given.begin(), given.end(), [](const Given &one) { return one.isPossible(); });
}

int reported() { return given.back().isPossible() ? static_cast<int>(given.back().claim) : -1; }

RSAPtr takeRsa() {
  RSAPtr rsa(RSA_new());
  RSA_set0_key(rsa.get(), takeNumber(false), takeNumber(false), takeNumber());
  if (input->ConsumeBool()) {
    RSA_set0_factors(rsa.get(), takeNumber(false), takeNumber(false));
  }
  if (input->ConsumeBool()) {
    RSA_set0_crt_params(rsa.get(), takeNumber(false), takeNumber(false), takeNumber(false));
  }
  return rsa;
}

void operateWithRsa() {
  const RSAPtr rsa = takeRsa();
  const BIGNUM *n = RSA_get0_n(rsa.get());
  const BIGNUM *e = RSA_get0_e(rsa.get());
  const BIGNUM *p = RSA_get0_p(rsa.get());
  const std::vector<const BIGNUM *> all{n,
                                        e,
                                        p,
                                        RSA_get0_q(rsa.get()),
                                        RSA_get0_d(rsa.get()),
                                        RSA_get0_dmp1(rsa.get()),
                                        RSA_get0_dmq1(rsa.get()),
                                        RSA_get0_iqmp(rsa.get())};
  const auto operation = input->PickValueInArray(
      {qvFipsRsaPublicEncrypt, qvFipsRsaPublicDecrypt, qvFipsRsaPrivateEncrypt, qvFipsRsaPrivateDecrypt});
  const int padding = input->ConsumeIntegralInRange(0, 7);
  Bytes out(static_cast<std::size_t>(RSA_size(rsa.get())));

  const bool asked = padding >= RSA_PKCS1_PADDING && padding <= RSA_PKCS1_OAEP_PADDING && canBeLoaded(all);
  qvFipsRsaInit(rsa.get());
  for (int time = 0; time < 2; ++time) { // the key is loaded anew
    startOver();
    const int result = operation(input->ConsumeIntegral<int>(), nullptr, out.data(), rsa.get(), padding);
    require(loaded.empty() != asked, "a key is loaded unless it or the padding is none");
    if (asked) {
      checkLoaded(p != nullptr ? all : std::vector<const BIGNUM *>{n, e});
    }
    require(result == (steps == 1 && !failed ? reported() : -1), "the result is what the module can have written");
  }
  qvFipsRsaFinish(rsa.get());
}

void generateRsa() {
  const RSAPtr rsa(RSA_new());
  const BIGNUMPtr e(takeNumber(false));
  const int bits = input->ConsumeIntegralInRange(-20, 700);
  qvFipsRsaInit(rsa.get());
  const int result = qvFipsRsaGenerateKey(rsa.get(), bits, e.get(), nullptr);
  require(result == (allGiven(8) ? 1 : 0) && result == steps, "a key is whole or fails");
  if (result == 1) {
    checkTaken({RSA_get0_n(rsa.get()), RSA_get0_e(rsa.get()), RSA_get0_p(rsa.get()), RSA_get0_q(rsa.get()),
                RSA_get0_d(rsa.get()), RSA_get0_dmp1(rsa.get()), RSA_get0_dmq1(rsa.get()), RSA_get0_iqmp(rsa.get())});
  }
  qvFipsRsaFinish(rsa.get());
}

DSAPtr takeDsa() {
  DSAPtr dsa(DSA_new());
  if (input->ConsumeIntegral<unsigned char>() % 16 != 1) {
    DSA_set0_pqg(dsa.get(), takeNumber(false), takeNumber(false), takeNumber(false));
  }
  DSA_set0_key(dsa.get(), takeNumber(false), takeNumber());
  return dsa;
}

std::vector<const BIGNUM *> numbersOf(const DSA *dsa) {
  return {DSA_get0_p(dsa), DSA_get0_q(dsa), DSA_get0_g(dsa), DSA_get0_pub_key(dsa), DSA_get0_priv_key(dsa)};
}

void signWithDsa() {
  const DSAPtr dsa = takeDsa();
  qvFipsDsaInit(dsa.get());
  qvFipsDsaFinish(dsa.get()); // and its empty key
  qvFipsDsaInit(dsa.get());
  require(loaded == std::vector<Number>(5), "a new object's key is empty");
  failed = false;
  DSA_SIG *signature = qvFipsDsaSign(nullptr, input->ConsumeIntegral<int>(), dsa.get());
  if (canBeLoaded(numbersOf(dsa.get()))) {
    checkLoaded(numbersOf(dsa.get()));
  }
  const bool usable = steps == 1 && allGiven(1);
  const unsigned char *der = usable ? given[0].room.data() : nullptr;
  require(ERR_peek_error() == 0, "no error comes of it");
  const Bytes expected = encodingOf<i2d_DSA_SIG, DSA_SIG_free>(
      usable ? d2i_DSA_SIG(nullptr, &der, static_cast<long>(given[0].claim)) : nullptr);
  const Bytes made = encodingOf<i2d_DSA_SIG, DSA_SIG_free>(signature);
  require(made == expected, "the signature is the module's; what is no DER signature is none");
  ERR_clear_error();
  qvFipsDsaFinish(dsa.get());
}

void generateDsa() {
  const DSAPtr dsa = takeDsa();
  const BIGNUMPtr before(BN_dup(DSA_get0_pub_key(dsa.get())));
  qvFipsDsaInit(dsa.get());
  failed = false;
  const int result = qvFipsDsaGenerateKey(dsa.get());
  require(result == (allGiven(2) ? 1 : 0), "a key pair is whole or fails");
  if (result == 1) {
    checkTaken({DSA_get0_pub_key(dsa.get()), DSA_get0_priv_key(dsa.get())});
    require(given[1].room.size() == 20, "a private key has room below a q of 160 bits");
  } else {
    require(BN_cmp(DSA_get0_pub_key(dsa.get()), before.get()) == 0, "a failure leaves the key as it was");
  }
  qvFipsDsaFinish(dsa.get());
}

void generateDsaGroup() {
  const DSAPtr dsa(DSA_new());
  int counter = 0;
  unsigned long h = 0;
  qvFipsDsaInit(dsa.get());
  failed = false;
  const int bits = input->ConsumeIntegralInRange(-20, 700);
  const int result = qvFipsDsaGenerateParameters(dsa.get(), bits, nullptr, 0, &counter, &h, nullptr);
  require(result == (allGiven(4) ? 1 : 0), "a group is whole or fails");
  if (result == 1) {
    const Given fromModule = given.front();
    given.erase(given.begin());
    checkTaken({DSA_get0_p(dsa.get()), DSA_get0_q(dsa.get()), DSA_get0_g(dsa.get())});
    const BIGNUMPtr number(BN_bin2bn(fromModule.room.data(), static_cast<int>(fromModule.claim), nullptr));
    require(h == (BN_get_word(number.get()) & 0xFFFFFFFFU) && counter == 105, "h and counter are the module's");
  }
  qvFipsDsaFinish(dsa.get());
}

void generateDhGroup() {
  const DHPtr dh(DH_new());
  qvFipsDhInit(dh.get());
  const int bits = input->ConsumeIntegralInRange(-20, 700);
  const int generator = input->ConsumeIntegral<int>();
  const int result = qvFipsDhGenerateParameters(dh.get(), bits, generator, nullptr);
  require(result == (allGiven(1) ? 1 : 0), "a group is whole or fails");
  if (result == 1) {
    checkTaken({DH_get0_p(dh.get())});
    require(generator > 0 && BN_is_word(DH_get0_g(dh.get()), static_cast<BN_ULONG>(generator)) == 1,
            "the generator is the caller's");
  }
  qvFipsDhFinish(dh.get());
}

void agreeWithDh() {
  const DHPtr dh(DH_new());
  DH_set0_pqg(dh.get(), takeNumber(false), nullptr, takeNumber(false));
  DH_set0_key(dh.get(), takeNumber(false), takeNumber(false));
  const std::vector<const BIGNUM *> key{DH_get0_g(dh.get()), DH_get0_p(dh.get()), DH_get0_priv_key(dh.get())};
  qvFipsDhInit(dh.get());
  const int made = qvFipsDhGenerateKey(dh.get());
  require(made == (allGiven(1) ? 1 : 0), "a public key is whole or fails");
  if (made == 1) {
    checkLoaded(key);
    checkTaken({DH_get0_pub_key(dh.get())});
  }
  failed = false;
  const BIGNUMPtr peer(takeNumber(false));
  Bytes secret(static_cast<std::size_t>(DH_size(dh.get())));
  const int length = qvFipsDhComputeKey(secret.data(), peer.get(), dh.get());
  require(length == (steps == 1 && !failed ? reported() : -1), "the length is what the module can have written");
  require(BN_is_zero(peer.get()) == (steps == 0 ? 1 : 0), "a peer's key is asked with unless it is 0");
  qvFipsDhFinish(dh.get());
}

struct World {
  World() {
    state::fipsModule = &table;
    makeKeyIndexes();
    qvFipsRandSeed(nullptr, 0);
  }
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const World world;
  input.emplace(data, size);
  while (input->remaining_bytes() > 0) {
    startOver();
    input->PickValueInArray(
        {operateWithRsa, generateRsa, signWithDsa, generateDsa, generateDsaGroup, generateDhGroup, agreeWithDh})();
    require(ERR_peek_error() == 0, "the module's errors are taken back");
  }
  return 0;
}
