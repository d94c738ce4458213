// What the engine hands to a connection's provider, and what it makes of the answer: any input to RSA private
// encryption, DSA and ECDSA, and a provider that lies about lengths, writes no DER, fails or throws.
#include "Encoding.h"

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krLifecycle.h>

#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <climits>
#include <optional>
#include <stdexcept>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;

constexpr int kCapacity = 16378;
constexpr unsigned char kUntouched = 0xEE;

// Keys of the engine. Only their sizes matter, so that any numbers will do.

BIGNUM *numberOfBits(int bits) {
  BIGNUM *number = BN_new();
  require(BN_set_bit(number, bits - 1) == 1, "there is memory");
  return number;
}

RSAPtr rsaOfBits(int bits) {
  RSAPtr rsa(RSA_new());
  RSA_set0_key(rsa.get(), numberOfBits(bits), numberOfBits(17), nullptr);
  return rsa;
}

DSAPtr dsaOfBits(int bits) {
  DSAPtr dsa(DSA_new());
  DSA_set0_pqg(dsa.get(), numberOfBits(2048), numberOfBits(bits), numberOfBits(2));
  return dsa;
}

struct World {
  World() {
    krOSSLSetup();
    for (const int bits : {24, 1000, 2048, 8 * (kCapacity + 6)}) {
      rsa.push_back(rsaOfBits(bits));
    }
    for (const int bits : {160, 256}) {
      dsa.push_back(dsaOfBits(bits));
    }
    for (const int curve : {NID_X9_62_prime256v1, NID_secp521r1}) {
      ec.emplace_back(EC_KEY_new_by_curve_name(curve));
    }
    context.reset(SSL_CTX_new(TLS_server_method()));
    ssl.reset(SSL_new(context.get()));
    for (const RSAPtr &key : rsa) {
      RSA_set_ex_data(key.get(), kropenssl_get_rsa_idx(), ssl.get());
    }
    for (const DSAPtr &key : dsa) {
      DSA_set_ex_data(key.get(), kropenssl_get_dsa_idx(), ssl.get());
    }
    for (const ECKeyPtr &key : ec) {
      EC_KEY_set_ex_data(key.get(), kropenssl_get_ecdsa_idx(), ssl.get());
    }
    ERR_clear_error();
  }

  std::vector<RSAPtr> rsa;
  std::vector<DSAPtr> dsa;
  std::vector<ECKeyPtr> ec;
  SSLCtxPtr context;
  SSLPtr ssl;
};

void raise(int reason) { ERR_put_error(ERR_LIB_USER, 0, reason, __FILE__, __LINE__); }

struct Request {
  int type, keySize;
  Bytes digest;
  int capacity;
  std::int32_t lengthOnEntry;
  bool operator==(const Request &) const = default;
};

struct Answer {
  bool succeeds, throws, raises;
  Bytes bytes; // at the front of what is there
  std::int32_t length;
};

/// Records what it is asked, and answers.
struct Provider {
  explicit Provider(Answer toGive) : answer(std::move(toGive)) {}

  static bool sign(void *arg, int type, int keySize, const unsigned char *data, int dataLength, unsigned char *out,
                   int capacity, std::int32_t *outLength) {
    auto *self = static_cast<Provider *>(arg);
    self->requests.push_back({type, keySize, Bytes(data, data + dataLength), capacity, *outLength});
    const int room = type == NID_md5_sha1 ? std::min(keySize, capacity) : capacity;
    std::fill_n(out, room, kUntouched);
    std::copy_n(self->answer.bytes.begin(),
                std::min<std::size_t>(self->answer.bytes.size(), static_cast<std::size_t>(room)), out);
    self->left.assign(out, out + room);
    *outLength = self->answer.length;
    if (self->answer.raises) {
      raise(2);
    }
    if (self->answer.throws) {
      throw std::runtime_error("a provider's");
    }
    return self->answer.succeeds;
  }

  Answer answer;
  std::vector<Request> requests;
  Bytes left; // where it wrote
};

struct Case {
  Bytes input;
  int length;     // the input's, or a negative one
  bool reachable; // a record with a callback is there
  bool marked;
  int padding;
};

/// The digest that a provider has to get; none when the input is to be refused.
std::optional<Bytes> digestOf(const Case &c) {
  const Bytes &input = c.input;
  if (c.length <= 0) {
    return std::nullopt;
  }
  for (const std::size_t length : {20U, 32U, 36U, 48U, 64U}) {
    if (input.size() == length) {
      return input;
    }
  }
  const unsigned char *cursor = input.data();
  const X509SigPtr info(d2i_X509_SIG(nullptr, &cursor, c.length));
  ERR_clear_error();
  if (!info) {
    return std::nullopt;
  }
  const ASN1_OCTET_STRING *digest = nullptr;
  X509_SIG_get0(info.get(), nullptr, &digest);
  const unsigned char *octets = ASN1_STRING_get0_data(digest);
  return Bytes(octets, octets + ASN1_STRING_length(digest));
}

/// What RSA private encryption has to return.
int expectedLength(const Case &c, const Answer &answer, int keySize) {
  const bool raw = digestOf(c) == c.input;
  if (!answer.succeeds || answer.throws) {
    return 0;
  }
  const bool possible = answer.length >= (raw ? 1 : 0) && answer.length <= std::min(keySize, kCapacity);
  return possible ? answer.length : -1;
}

/// The error queue: an entry or two from before the operation, perhaps with a mark, and the provider's.
class Errors {
public:
  explicit Errors(bool marked) : marked_(marked) {
    ERR_clear_error();
    raise(1);
    if (marked_) {
      ERR_set_mark();
    }
  }

  void check(bool providersIsThere) const {
    if (marked_) {
      require(ERR_pop_to_mark() == 1, "the caller's mark stays");
    }
    require(ERR_get_error() == ERR_PACK(ERR_LIB_USER, 0, 1), "the caller's errors stay");
    const unsigned long rest = providersIsThere && !marked_ ? ERR_PACK(ERR_LIB_USER, 0, 2) : 0;
    require(ERR_get_error() == rest && ERR_get_error() == 0, "of new errors, the provider's stay and no other");
  }

private:
  bool marked_;
};

/// Runs the operation and checks what reached the provider, and the error queue.
/// @return what the operation gave
template <class Operation> auto run(const Case &c, Provider &provider, int type, int keySize, Operation operation) {
  std::vector<Request> expected;
  if (const auto digest = digestOf(c); digest && c.reachable) {
    expected.push_back({type, keySize, *digest, kCapacity, 0});
  }
  const Errors errors(c.marked);
  auto result = operation();
  require(provider.requests == expected, "the provider gets the digest, or is not asked");
  errors.check(!provider.requests.empty() && provider.answer.raises);
  return result;
}

void encryptWithRsa(RSA *rsa, const Case &c, Provider &provider) {
  const int keySize = RSA_size(rsa);
  Bytes out(static_cast<std::size_t>(keySize), kUntouched);
  const int result = run(c, provider, NID_md5_sha1, keySize,
                         [&] { return RSA_private_encrypt(c.length, c.input.data(), out.data(), rsa, c.padding); });
  const bool asked = !provider.requests.empty();
  require(result == (asked ? expectedLength(c, provider.answer, keySize) : -1), "the result follows the answer");
  provider.left.resize(out.size(), kUntouched);
  require(out == provider.left, "the output holds what the provider wrote, and nothing else");
}

template <auto Decode, auto Encode, auto Free, class Sign>
void signWith(int type, int keySize, const Case &c, Provider &provider, Sign sign) {
  auto *signature = run(c, provider, type, keySize, sign);
  const Answer &answer = provider.answer;
  const bool usable = !provider.requests.empty() && answer.succeeds && !answer.throws && answer.length > 0 &&
                      answer.length <= kCapacity;
  const unsigned char *cursor = provider.left.data();
  const Bytes expected = encodingOf<Encode, Free>(usable ? Decode(nullptr, &cursor, answer.length) : nullptr);
  require(encodingOf<Encode, Free>(signature) == expected, "the signature is the provider's");
}

Bytes asDigestInfo(const Bytes &digest, int hash) {
  X509_SIG *info = X509_SIG_new();
  X509_ALGOR *algorithm = nullptr;
  ASN1_OCTET_STRING *octets = nullptr;
  X509_SIG_getm(info, &algorithm, &octets);
  X509_ALGOR_set0(algorithm, OBJ_nid2obj(hash), V_ASN1_NULL, nullptr);
  ASN1_OCTET_STRING_set(octets, digest.data(), static_cast<int>(digest.size()));
  return encodingOf<i2d_X509_SIG, X509_SIG_free>(info);
}

Answer takeAnswer(FuzzedDataProvider &input, int keySize) {
  Answer answer{input.ConsumeIntegral<unsigned char>() % 8 != 1, input.ConsumeIntegral<unsigned char>() % 8 == 1,
                input.ConsumeBool(), takeBytes(input, 600), 0};
  if (input.ConsumeBool()) {
    answer.bytes = encodedSignature(answer.bytes);
  }
  const auto written = static_cast<std::int32_t>(answer.bytes.size());
  answer.length = input.PickValueInArray({written, written, input.ConsumeIntegral<std::int32_t>(), 0, -1, INT_MIN,
                                          keySize, keySize + 1, kCapacity, kCapacity + 1, written - 1, INT_MAX});
  return answer;
}

Case takeCase(FuzzedDataProvider &input) {
  Case c{{}, 0, true, input.ConsumeBool(), input.PickValueInArray({RSA_PKCS1_PADDING, RSA_NO_PADDING, -1})};
  const bool negative = input.ConsumeIntegral<unsigned char>() % 16 == 1;
  const int negativeLength = input.ConsumeIntegralInRange(INT_MIN, -1);
  const int hash = input.PickValueInArray({NID_undef, NID_sha1, NID_sha224, NID_sha256, NID_md5, NID_sha512});
  c.input = takeBytes(input, 400);
  if (hash != NID_undef) {
    c.input = asDigestInfo(c.input, hash);
  }
  c.input.shrink_to_fit();
  c.length = negative ? negativeLength : static_cast<int>(c.input.size());
  return c;
}

void operate(const World &world, FuzzedDataProvider &input) {
  const auto which = input.ConsumeIntegralInRange<std::size_t>(0, 7);
  const int record = input.ConsumeIntegralInRange(0, 15);
  const bool isRsa = which < world.rsa.size();
  RSA *rsa = isRsa ? world.rsa[which].get() : nullptr;
  DSA *dsa = world.dsa[which % 2].get();
  EC_KEY *ec = world.ec[which % 2].get();

  Provider provider(takeAnswer(input, isRsa ? RSA_size(rsa) : DSA_size(dsa)));
  Case c = takeCase(input);
  c.reachable = record != 1 && record != 2;
  ift_provider given{nullptr, record == 1 ? nullptr : Provider::sign, &provider};
  SSL_CTX_set_ex_data(world.context.get(), kropenssl_get_ssl_ctx_idx(), record == 2 ? nullptr : &given);

  if (isRsa) {
    encryptWithRsa(rsa, c, provider);
  } else if (which < world.rsa.size() + world.dsa.size()) {
    signWith<d2i_DSA_SIG, i2d_DSA_SIG, DSA_SIG_free>(NID_dsa, DSA_size(dsa), c, provider,
                                                     [&] { return DSA_do_sign(c.input.data(), c.length, dsa); });
  } else {
    signWith<d2i_ECDSA_SIG, i2d_ECDSA_SIG, ECDSA_SIG_free>(NID_ecdsa_with_Recommended, ECDSA_size(ec), c, provider,
                                                           [&] { return ECDSA_do_sign(c.input.data(), c.length, ec); });
  }
  ERR_clear_error();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const World world;
  FuzzedDataProvider input(data, size);
  while (input.remaining_bytes() > 0) {
    operate(world, input);
  }
  return 0;
}
