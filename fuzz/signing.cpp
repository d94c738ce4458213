// Every way to a signature through OpenSSL's own calls over a lying store: RSA, DSA and ECDSA, called directly and by
// EVP, by provider, DelegatedKey and callback, with keys of the library's engines and of wolfEngine.
#include "LyingStore.h"

#include <array>
#include <optional>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;
using store::Way;

struct Key {
  EVPPKeyPtr key;
  Way way;
  bool decrypts; // by callback

  int size() const { return EVP_PKEY_size(key.get()); }
  int type() const { return EVP_PKEY_base_id(key.get()); }
};

// Only the keys' sizes matter, so that any numbers will do.

BIGNUM *numberOfBits(int bits) {
  BIGNUM *number = BN_new();
  require(BN_set_bit(number, bits - 1) == 1, "there is memory");
  return number;
}

EVPPKeyPtr makeKey(int type, int bitsOrCurve) {
  EVPPKeyPtr key(EVP_PKEY_new());
  if (type == EVP_PKEY_RSA) {
    RSA *rsa = RSA_new();
    RSA_set0_key(rsa, numberOfBits(bitsOrCurve), numberOfBits(17), nullptr);
    EVP_PKEY_assign_RSA(key.get(), rsa);
  } else if (type == EVP_PKEY_DSA) {
    DSA *dsa = DSA_new();
    DSA_set0_pqg(dsa, numberOfBits(2048), numberOfBits(bitsOrCurve), numberOfBits(2));
    DSA_set0_key(dsa, numberOfBits(2), nullptr);
    EVP_PKEY_assign_DSA(key.get(), dsa);
  } else {
    EC_KEY *ec = EC_KEY_new_by_curve_name(bitsOrCurve);
    EC_KEY_set_public_key(ec, EC_GROUP_get0_generator(EC_KEY_get0_group(ec)));
    EVP_PKEY_assign_EC_KEY(key.get(), ec);
  }
  return key;
}

std::vector<EVPPKeyPtr> makeKeys(std::initializer_list<std::pair<int, int>> kinds) {
  std::vector<EVPPKeyPtr> keys;
  for (const auto &[type, bitsOrCurve] : kinds) {
    keys.push_back(makeKey(type, bitsOrCurve));
  }
  return keys;
}

std::vector<EVPPKeyPtr> ordinaryKeys() {
  return makeKeys({{EVP_PKEY_RSA, 24},
                   {EVP_PKEY_RSA, 1000},
                   {EVP_PKEY_RSA, 8 * (store::kCapacity + 6)},
                   {EVP_PKEY_DSA, 160},
                   {EVP_PKEY_DSA, 256},
                   {EVP_PKEY_EC, NID_X9_62_prime256v1},
                   {EVP_PKEY_EC, NID_secp521r1}});
}

class World {
public:
  World() {
    store::registerCallbacks();
    const auto wolfEngines = [] { return makeKeys({{EVP_PKEY_RSA, 2048}, {EVP_PKEY_EC, NID_X9_62_prime256v1}}); };
    const auto bridges = [] { return makeKeys({{EVP_PKEY_RSA, 2048}, {EVP_PKEY_DSA, 256}}); };
    add(store::withBridge(bridges), Way::callback, true);
    for (const Way way : {Way::provider, Way::callback}) {
      add(ordinaryKeys(), way, true);
      add(store::withWolfEngine(wolfEngines), way, false);
    }
    add(ordinaryKeys(), Way::delegate, true);
  }

  std::vector<Key> keys;

private:
  // Each with a connection of its own, for those that need one.
  void add(std::vector<EVPPKeyPtr> made, Way way, bool decrypts) {
    for (EVPPKeyPtr &key : made) {
      const SSLCtxPtr context(SSL_CTX_new(TLS_server_method()));
      SSL *ssl = connections_.emplace_back(SSL_new(context.get())).get();
      if (way == Way::provider) {
        SSL_CTX_set_ex_data(context.get(), kropenssl_get_ssl_ctx_idx(), &store::record);
        require(detail::nameConnection(key.get(), ssl, false), "an engine that delegates serves the key");
      } else if (way == Way::delegate) {
        store::delegated(library_, key.get()).bindTo(ssl);
        key.reset(SSL_get_privatekey(ssl));
        EVP_PKEY_up_ref(key.get());
      }
      keys.push_back({std::move(key), way, decrypts});
    }
  }

  Library library_;
  std::vector<SSLPtr> connections_;
};

struct Case {
  Bytes input;
  int length; // the input's, or a negative one
  const EVP_MD *hash;
  int padding;
};

/// What an operation made: its result, and the length beside it.
struct Outcome {
  int result;
  std::size_t length;
};

using Operation = Outcome (*)(EVP_PKEY *, const Case &, Bytes &);

// The first two reach the engine as they are called, and add nothing of OpenSSL's own.

template <auto kOperation> Outcome transform(EVP_PKEY *key, const Case &c, Bytes &out) {
  const int length = kOperation(c.length, c.input.data(), out.data(), EVP_PKEY_get0_RSA(key), c.padding);
  return {length, static_cast<std::size_t>(std::max(length, 0))};
}

template <auto kSign, auto kKey, auto kEncode, auto kFree> Outcome doSign(EVP_PKEY *key, const Case &c, Bytes &out) {
  auto *made = kSign(c.input.data(), c.length, kKey(key));
  const int result = made != nullptr ? 1 : 0;
  out = encodingOf<kEncode, kFree>(made);
  return {result, out.size()};
}

template <class Length, auto kSign, auto kKey> Outcome sign(EVP_PKEY *key, const Case &c, Bytes &out) {
  unsigned int length = 0;
  const int hash = c.hash != nullptr ? EVP_MD_type(c.hash) : NID_md5_sha1;
  const auto inLength = static_cast<Length>(c.input.size());
  return {kSign(hash, c.input.data(), inLength, out.data(), &length, kKey(key)), length};
}

template <auto kInit, auto kOperation> Outcome byEvp(EVP_PKEY *key, const Case &c, Bytes &out) {
  const EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
  kInit(context.get());
  EVP_PKEY_CTX_set_rsa_padding(context.get(), c.padding);
  if (c.hash != nullptr) {
    EVP_PKEY_CTX_set_signature_md(context.get(), c.hash);
  }
  std::size_t length = out.size();
  return {kOperation(context.get(), out.data(), &length, c.input.data(), c.input.size()), length};
}

Outcome digestSign(EVP_PKEY *key, const Case &c, Bytes &out) {
  const EVPMDCtxPtr context(EVP_MD_CTX_new());
  EVP_PKEY_CTX *parameters = nullptr;
  if (EVP_DigestSignInit(context.get(), &parameters, c.hash, nullptr, key) != 1) {
    return {0, 0};
  }
  EVP_PKEY_CTX_set_rsa_padding(parameters, c.padding);
  std::size_t length = out.size();
  return {EVP_DigestSign(context.get(), out.data(), &length, c.input.data(), c.input.size()), length};
}

constexpr Operation kDecrypt = transform<RSA_private_decrypt>;
constexpr Operation kDecryptByEvp = byEvp<EVP_PKEY_decrypt_init, EVP_PKEY_decrypt>;

// By type: that called directly, that which has no other bound than the key's size, and what tells OpenSSL its room.
struct Row {
  int type;
  Operation direct, bare;
};
constexpr std::array<Row, 3> kRows{
    {{EVP_PKEY_RSA, transform<RSA_private_encrypt>, sign<unsigned, RSA_sign, EVP_PKEY_get0_RSA>},
     {EVP_PKEY_DSA, doSign<DSA_do_sign, EVP_PKEY_get0_DSA, i2d_DSA_SIG, DSA_SIG_free>,
      sign<int, DSA_sign, EVP_PKEY_get0_DSA>},
     {EVP_PKEY_EC, doSign<ECDSA_do_sign, EVP_PKEY_get0_EC_KEY, i2d_ECDSA_SIG, ECDSA_SIG_free>,
      sign<int, ECDSA_sign, EVP_PKEY_get0_EC_KEY>}}};

Case takeCase(Input &input) {
  constexpr std::array<unsigned char, 19> kInfo{0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                                0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  Case c{takeBytes(input, 300), 0, nullptr, 0};
  c.hash = input.PickValueInArray<const EVP_MD *>(
      {nullptr, EVP_sha1(), EVP_sha224(), EVP_sha256(), EVP_md5_sha1(), EVP_sha512()});
  c.padding = input.PickValueInArray(
      {RSA_PKCS1_PADDING, RSA_PKCS1_PSS_PADDING, RSA_NO_PADDING, RSA_PKCS1_OAEP_PADDING, RSA_X931_PADDING, -1});
  const int shape = input.ConsumeIntegralInRange(0, 3);
  if (shape > 0 && c.hash != nullptr) {
    c.input.resize(static_cast<std::size_t>(EVP_MD_size(c.hash)));
  }
  if (shape == 2) { // a DigestInfo, if the hash is SHA-256
    c.input.insert(c.input.begin(), kInfo.begin(), kInfo.end());
  }
  c.input.shrink_to_fit();
  c.length = oneIn(input, 16) ? input.ConsumeIntegralInRange(INT_MIN, -1) : static_cast<int>(c.input.size());
  return c;
}

/// The digest that a provider has to get; none when the input is to be refused.
std::optional<Bytes> digestOf(const Case &c) {
  if (c.length > 0 && hashOfLength(c.input.size()) != NID_undef && c.input.size() != 28) {
    return c.input;
  }
  const unsigned char *cursor = c.input.data();
  const X509SigPtr info(c.length > 0 ? d2i_X509_SIG(nullptr, &cursor, c.length) : nullptr);
  if (!info) {
    return std::nullopt;
  }
  const ASN1_OCTET_STRING *digest = nullptr;
  X509_SIG_get0(info.get(), nullptr, &digest);
  const unsigned char *octets = ASN1_STRING_get0_data(digest);
  return Bytes(octets, octets + ASN1_STRING_length(digest));
}

/// What RSA private encryption and decryption return.
std::int64_t expectedResult(Way way, int size, bool isRaw) {
  const bool isTooLong = store::claim > (way == Way::callback ? size : std::min(size, store::kCapacity));
  if (!store::answered || (way == Way::delegate && (store::claim <= 0 || isTooLong))) {
    return way == Way::callback || store::asked == 0 ? -1 : 0;
  }
  return isTooLong || (way == Way::provider && store::claim < (isRaw ? 1 : 0)) ? -1 : store::claim;
}

/// The error queue after a direct call: an entry of the caller's, perhaps with a mark, and the store's.
void checkErrors(Way way, bool isMarked, bool succeeded) {
  const unsigned long last = ERR_peek_last_error();
  const bool isStores = last == ERR_PACK(ERR_LIB_USER, 0, 2);
  require(isStores || last == ERR_PACK(ERR_LIB_USER, 0, 1), "of new errors none but the store's stay");
  require(way != Way::provider || isStores == store::raised, "a provider's errors stay");
  require(way != Way::delegate || !succeeded || !isStores, "a DelegatedKey that signs leaves no errors");
  require(!isMarked || ERR_pop_to_mark() == 1, "the caller's mark stays");
  require(ERR_get_error() == ERR_PACK(ERR_LIB_USER, 0, 1), "the caller's errors stay");
}

void checkDirect(Way way, int rsaSize, const Case &c, int result, const Bytes &out) {
  const std::optional<Bytes> digest = way == Way::callback ? c.input : digestOf(c);
  require(store::asked == (digest ? 1 : 0), "the store is asked once, unless the input does not fit a provider");
  require(!digest || store::digest == (c.length < 0 ? Bytes() : *digest), "with the bare digest, a callback the input");
  require(digest || std::count(out.begin(), out.end(), kUntouched) == static_cast<long>(out.size()), "none is written");
  require(rsaSize == 0 || result == expectedResult(way, rsaSize, digest == c.input), "the result follows the answer");
}

void operate(const World &world, Input &input) {
  store::startOver(input);
  const Key &key = world.keys.at(input.ConsumeIntegralInRange<std::size_t>(0, world.keys.size() - 1));
  const Row &row = *std::find_if(kRows.begin(), kRows.end(), [&](const Row &one) { return one.type == key.type(); });
  const bool mayDecrypt = key.type() == EVP_PKEY_RSA && key.decrypts;
  const Operation operation =
      input.PickValueInArray<Operation>({row.direct, row.bare, byEvp<EVP_PKEY_sign_init, EVP_PKEY_sign>, digestSign,
                                         mayDecrypt ? kDecrypt : row.direct, mayDecrypt ? kDecryptByEvp : row.bare});
  const bool isDirect = operation == row.direct || operation == kDecrypt;
  const Way way = operation == kDecrypt ? Way::callback : key.way;
  const Case c = takeCase(input);
  const bool isMarked = input.ConsumeBool();
  const auto size = static_cast<std::size_t>(key.size());
  const bool isAllThere = isDirect || operation == row.bare || input.ConsumeBool();
  Bytes out(isAllThere ? size : input.ConsumeIntegralInRange<std::size_t>(1, size), kUntouched);
  ERR_clear_error();
  store::raise(1);
  if (isMarked) {
    ERR_set_mark();
  }

  const auto [result, length] = operation(key.key.get(), c, out);
  if (isDirect) {
    checkErrors(way, isMarked, result > 0);
    checkDirect(way, key.type() == EVP_PKEY_RSA ? key.size() : 0, c, result, out);
  }
  // Of no bytes is what OpenSSL makes of RSA's 0.
  require(result <= 0 || length <= out.size(), "no result is longer than the key's size");
  if (operation != kDecryptByEvp) {
    require(result > 0 || store::signature.empty() || !store::isProper, "what the store can have made is passed on");
    require(result <= 0 || (store::asked == 1 && Bytes(out.data(), out.data() + length) == store::signature),
            "and nothing else");
  }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const World world;
  Input input(data, size);
  for (int step = 0; step < kMostSteps && input.remaining_bytes() > 0; ++step) {
    operate(world, input);
  }
  ERR_clear_error();
  return 0;
}
