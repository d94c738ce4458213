// The bridge's keys over a hostile FIPS module: any numbers to be loaded, and a module that fails, leaves errors, and
// claims any length for what it wrote.
#include "Encoding.h"

#include "fipsbridge/BridgeIndexes.h"
#include "fipsbridge/KeyCells.h"
#include "fipsbridge/krFIPSDH.h"
#include "fipsbridge/krFIPSDSA.h"
#include "fipsbridge/krFIPSRSA.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;
using Length = FipsModule::Length;
using Number = std::optional<Bytes>; // none where there is no number

// The module.

struct Given {
  Bytes room;
  Length claim;

  bool isPossible() const { return claim >= 0 && claim <= static_cast<Length>(room.size()); }
};

FuzzedDataProvider *input = nullptr;
std::vector<Number> loaded; // by the last load
std::vector<Given> given;
int steps = 0; // calls of what comes after a load
bool failed = false;

int answer() {
  ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__);
  failed = failed || input->ConsumeIntegral<unsigned char>() % 16 == 1;
  return failed ? 7 : 0;
}

template <class... Rest> void take(FipsModule::Bytes bytes, Length length, Rest... rest) {
  require((bytes == nullptr) == (length == 0), "no number is null and 0");
  loaded.push_back(bytes != nullptr ? Number(Bytes(bytes, bytes + length)) : std::nullopt);
  if constexpr (sizeof...(rest) > 0) {
    take(rest...);
  }
}

constexpr auto load = [](void * /*context*/, KeyHandleCell *cell, Length cellBytes, void * /*generator*/,
                         auto... numbers) {
  require(cell->handle == nullptr && cellBytes == sizeof *cell, "the key before was freed");
  loaded.clear();
  take(numbers...);
  cell->handle = &loaded;
  return answer();
};

int letGo(KeyHandleCell *cell) {
  cell->handle = nullptr;
  return 0;
}

/// Fills the room and claims to have written anything.
void give(unsigned char *out, Length room, Length *written) {
  const auto size = static_cast<std::size_t>(room);
  Bytes bytes = input->ConsumeBytes<unsigned char>(size);
  bytes.resize(size);
  std::copy(bytes.begin(), bytes.end(), out);
  const Length other = input->PickValueInArray({room + 1, room - 1, Length{0}, Length{-1}, Length{1} << 32U,
                                                input->ConsumeIntegral<Length>(), std::numeric_limits<Length>::min()});
  *written = input->ConsumeIntegral<unsigned char>() % 4 == 1 ? other : room;
  given.push_back({std::move(bytes), *written});
}

template <class... Rest> void giveAll(unsigned char *out, Length *length, Rest... rest) {
  if (out != nullptr) {
    give(out, *length, length);
  }
  if constexpr (sizeof...(rest) > 0) {
    giveAll(rest...);
  }
}

constexpr auto exportKey = [](KeyHandleCell * /*cell*/, auto... numbers) {
  giveAll(numbers...);
  return answer();
};

int rsaStep(KeyHandleCell * /*cell*/, const unsigned char * /*in*/, Length /*length*/, Length padding,
            unsigned char *out, Length *written) {
  ++steps;
  require(*written == 0 && padding >= 0 && padding <= 3, "the arguments are the operation's");
  give(out, static_cast<Length>(loaded.at(0)->size()), written);
  return answer();
}

const FipsModule module = [] {
  FipsModule table{};
  table.RngInstantiate = [](auto...) { return 0; };
  table.RsaLoadPublicKey = load;
  table.RsaLoadPrivateKey = load;
  table.RsaPublicEncrypt = table.RsaPrivateDecrypt = table.RsaPrivateEncrypt = table.RsaPublicDecrypt = rsaStep;
  table.RsaGenerateKey = [](void *, KeyHandleCell *, Length, void *, Length, std::uint32_t) { return answer(); };
  table.RsaExportKey = exportKey;
  table.RsaGenerateKeyDone = [](KeyHandleCell *) { return ++steps; };
  table.RsaFree = table.DsaFree = table.DhFree = letGo;
  table.DsaLoadKey = load;
  table.DsaGenerateKey = [](KeyHandleCell *) { return answer(); };
  table.DsaExportKey = exportKey;
  table.DsaSign = [](KeyHandleCell *, const unsigned char *, Length, unsigned char *der, Length *length, void *,
                     Length) {
    ++steps;
    give(der, *length, length);
    return answer();
  };
  table.DhCreate = [](void *context, KeyHandleCell *cell, Length cellBytes, void *generator, FipsModule::Bytes g,
                      Length gLength, FipsModule::Bytes p, Length pLength) {
    return load(context, cell, cellBytes, generator, g, gLength, p, p != nullptr ? pLength : 0);
  };
  table.DhGenerateKey = [](KeyHandleCell *, unsigned char *out, Length *length, Length room, FipsModule::Bytes key,
                           Length keyLength) {
    take(key, keyLength);
    give(out, room, length);
    return answer();
  };
  table.DhComputeKey = [](KeyHandleCell *, unsigned char *out, Length *written, Length room, FipsModule::Bytes peer,
                          Length peerLength) {
    ++steps;
    take(peer, peerLength);
    give(out, room, written);
    return answer();
  };
  return table;
}();

// The keys.

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

  qvFipsRsaInit(rsa.get());
  const int result = operation(input->ConsumeIntegral<int>(), nullptr, out.data(), rsa.get(), padding);
  const bool asked = padding >= RSA_PKCS1_PADDING && padding <= RSA_PKCS1_OAEP_PADDING && canBeLoaded(all);
  require(loaded.empty() != asked, "a key is loaded unless it or the padding is none");
  if (asked) {
    checkLoaded(p != nullptr ? all : std::vector<const BIGNUM *>{n, e});
  }
  require(result == (steps == 1 && !failed ? reported() : -1), "the result is what the module can have written");
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
  } else {
    require(BN_cmp(DSA_get0_pub_key(dsa.get()), before.get()) == 0, "a failure leaves the key as it was");
  }
  qvFipsDsaFinish(dsa.get());
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
    state::fipsModule = &module;
    makeKeyIndexes();
    qvFipsRandSeed(nullptr, 0);
  }
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const World world;
  FuzzedDataProvider provider(data, size);
  input = &provider;
  while (provider.remaining_bytes() > 0) {
    loaded.clear();
    given.clear();
    steps = 0;
    failed = false;
    provider.PickValueInArray({operateWithRsa, generateRsa, signWithDsa, generateDsa, agreeWithDh})();
    require(ERR_peek_error() == 0, "the module's errors are taken back");
  }
  return 0;
}
