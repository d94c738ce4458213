// The module's entries, each over a call of OpenSSL's; its lies; and the record of its calls.
#include "support/ReferenceModule.h"

#include "support/Allocations.h"
#include "support/Keys.h"

#include <krOpenSSL/krHandles.h>

#include <gtest/gtest.h>
#include <openssl/aes.h>
#include <openssl/des.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>

namespace krTest::referenceModule {
namespace {

using krOpenSSL::BIGNUMPtr;
using krOpenSSL::FipsModule;
using krOpenSSL::KeyHandleCell;
using Bytes = FipsModule::Bytes;
using Buffer = FipsModule::Buffer;
using Length = FipsModule::Length;
using Capacity = FipsModule::Capacity;
using Cell = KeyHandleCell *;

constexpr int done(bool success) { return success ? 0 : 1; }
constexpr int narrow(Length length) { return static_cast<int>(length); }

/// What every entry with such arguments gets.
void expectUsual(void *context, Length areaBytes, Length expected) {
  EXPECT_EQ(context, krOpenSSL::fipsModuleContext);
  EXPECT_EQ(areaBytes, expected);
}

/// A length that was an int comes sign-extended.
void expectInt(Length number) { EXPECT_EQ(number, narrow(number)); }
template <class Other> void expectInt(Other) {}

/// Frees an area: whoever goes on with it gets it wrong.
template <std::size_t kBytes> int spoil(void *area) {
  std::memset(area, 0xEE, kBytes);
  return 0;
}

std::mutex recording;
std::vector<const char *> recorded;

template <std::size_t Size> struct Name {
  char text[Size]{};
  constexpr Name(const char (&name)[Size]) { std::copy_n(name, Size, text); } // NOLINT: meant to convert
};

template <Name kName, auto kWork, class... Arguments> int entry(Arguments... arguments) {
  const allocations::Spared spared;
  (expectInt(arguments), ...);
  {
    const std::scoped_lock lock(recording);
    recorded.push_back(kName.text);
  }
  if (failing == kName.text) {
    ERR_put_error(ERR_LIB_USER, 0, 1, __FILE__, __LINE__); // as a module over OpenSSL may
    return kFailure;
  }
  return kWork(arguments...);
}

// Random numbers.

int rngInstantiate(void *context, void *generator, Length bytes, Bytes, Length, Length one) {
  expectUsual(context, bytes, 208);
  EXPECT_EQ(generator, krOpenSSL::fipsGeneratorState);
  EXPECT_EQ(one, 1);
  return 0;
}
int rngReseed(void *generator, Bytes, Length length) {
  EXPECT_EQ(generator, krOpenSSL::fipsGeneratorState);
  return narrow(length);
}
int rngGenerate(void *, Buffer out, Length length) { return done(RAND_OpenSSL()->bytes(out, narrow(length)) == 1); }

// Digests: the area holds OpenSSL's context, and at its end, where SHA-512 has it anyway, the digest's size.

static_assert(sizeof(SHA512_CTX) == 216 && offsetof(SHA512_CTX, md_len) == 212);

unsigned &sizeIn(void *area) { return static_cast<SHA512_CTX *>(area)->md_len; }
SHA_CTX *sha1(void *area) { return static_cast<SHA_CTX *>(area); }
SHA256_CTX *sha256(void *area) { return static_cast<SHA256_CTX *>(area); }
SHA512_CTX *sha512(void *area) { return static_cast<SHA512_CTX *>(area); }

template <Length kAreaBytes> int shaInit(void *context, void *area, Length bytes, Length size) {
  expectUsual(context, bytes, kAreaBytes);
  const int result = size == 20   ? SHA1_Init(sha1(area))
                     : size == 28 ? SHA224_Init(sha256(area))
                     : size == 32 ? SHA256_Init(sha256(area))
                     : size == 48 ? SHA384_Init(sha512(area))
                                  : SHA512_Init(sha512(area));
  sizeIn(area) = static_cast<unsigned>(size);
  return done(result == 1);
}
int shaUpdate(void *area, Bytes data, Length length) {
  const auto count = static_cast<std::size_t>(length);
  return done(sizeIn(area) != 0 && (sizeIn(area) == 20   ? SHA1_Update(sha1(area), data, count)
                                    : sizeIn(area) <= 32 ? SHA256_Update(sha256(area), data, count)
                                                         : SHA512_Update(sha512(area), data, count)) == 1);
}
int shaFinal(void *area, Buffer out) {
  return done(sizeIn(area) != 0 && (sizeIn(area) == 20   ? SHA1_Final(out, sha1(area))
                                    : sizeIn(area) <= 32 ? SHA256_Final(out, sha256(area))
                                                         : SHA512_Final(out, sha512(area))) == 1);
}

// What it takes for a MAC: the digest of key and data. It wants an area of zeros, or one that it has begun in.

int hmacInit(void *context, void *area, Length bytes, Length size) {
  const auto *first = static_cast<unsigned char *>(area);
  EXPECT_TRUE(std::count(first, first + bytes, 0) == bytes || sizeIn(area) == size);
  return shaInit<352>(context, area, bytes, size);
}

// Ciphers.

DES_key_schedule *schedule(void *area) { return static_cast<DES_key_schedule *>(area); }
AES_KEY *aesKey(void *area) { return static_cast<AES_KEY *>(area); }

int tdesSetKey(void *context, void *area, Length bytes, Bytes key) {
  expectUsual(context, bytes, 128);
  DES_cblock block;
  std::copy_n(key, sizeof block, block);
  DES_set_key_unchecked(&block, schedule(area));
  return 0;
}
int tdesCbc(void *first, void *second, void *third, Bytes in, Buffer out, Length length, Bytes iv, Buffer ivOut,
            Length encrypt) {
  DES_ede3_cbc_encrypt(in, out, static_cast<long>(length), schedule(first), schedule(second), schedule(third),
                       reinterpret_cast<DES_cblock *>(ivOut), narrow(encrypt));
  return done(iv == ivOut);
}
template <auto SetKey> int aesSetKey(void *context, void *area, Length bytes, Bytes key, Length bits) {
  expectUsual(context, bytes, 256);
  return SetKey(key, narrow(bits), aesKey(area));
}
int aesEcb(void *area, Bytes in, Buffer out, Length length, Length encrypt) {
  for (Length at = 0; at < length; at += AES_BLOCK_SIZE) {
    (encrypt != 0 ? AES_encrypt : AES_decrypt)(in + at, out + at, aesKey(area));
  }
  return 0;
}
int aesCbc(void *area, Bytes in, Buffer out, Length length, Bytes iv, Buffer ivOut, Length encrypt) {
  AES_cbc_encrypt(in, out, static_cast<std::size_t>(length), aesKey(area), ivOut, narrow(encrypt));
  return done(iv == ivOut);
}

// A wrap or an unwrap may come before any key, over an area of zeros.
bool hasKey(void *area) { return aesKey(area)->rounds != 0; }

int aesKeyWrap(void *area, Buffer out, Bytes in, Length inLength, Bytes iv) {
  return done(hasKey(area) && AES_wrap_key(aesKey(area), iv, out, in, static_cast<unsigned>(inLength)) > 0);
}
int aesKeyUnwrap(void *area, Buffer out, Length outLength, Bytes in, Bytes iv) {
  return done(hasKey(area) && AES_unwrap_key(aesKey(area), iv, out, in, static_cast<unsigned>(outLength + 8)) > 0);
}

// Keys: the handle is a key object of an engine with OpenSSL's own methods.

ENGINE *ownMethods() {
  static ENGINE *const engine = [] {
    ENGINE *made = ENGINE_new();
    ENGINE_set_RSA(made, RSA_PKCS1_OpenSSL());
    ENGINE_set_DSA(made, DSA_OpenSSL());
    ENGINE_set_DH(made, DH_OpenSSL());
    return made;
  }();
  return engine;
}

std::atomic<int> live{0};

template <class Key> Key *keyIn(Cell cell) { return static_cast<Key *>(cell->handle); }

template <class Key, auto New> Key *newKey(void *context, Cell cell, Length cellBytes, void *generator) {
  expectUsual(context, cellBytes, 8);
  EXPECT_EQ(generator, krOpenSSL::fipsGeneratorState);
  EXPECT_EQ(cell->handle, nullptr) << "the key before was not freed";
  Key *key = New(ownMethods());
  EXPECT_NE(key, nullptr);
  ++live;
  cell->handle = key;
  return key;
}

template <class Key, auto Free> int freeKey(Cell cell) {
  live -= cell->handle != nullptr ? 1 : 0;
  Free(keyIn<Key>(cell));
  cell->handle = nullptr;
  return 0;
}

BIGNUM *number(Bytes bytes, Length length) {
  return bytes != nullptr ? BN_bin2bn(bytes, static_cast<int>(length), nullptr) : nullptr;
}

/// The numbers of so many pairs of bytes and length.
template <class... Rest> std::vector<BIGNUM *> numbers(Bytes bytes, Length length, Rest... rest) {
  std::vector<BIGNUM *> all{number(bytes, length)};
  if constexpr (sizeof...(rest) > 0) {
    const auto others = numbers(rest...);
    all.insert(all.end(), others.begin(), others.end());
  }
  return all;
}

/// The length that an entry claims to have written.
Length claimed(Length room, Length written) {
  constexpr Length kNegative = std::numeric_limits<Length>::min() + 16; // as an int it is 16
  return fault == Fault::overstates ? room + 1 : fault == Fault::negates ? kNegative : written;
}

/// Writes the first number to the first pair of buffer and length, and so on; no buffer: not wanted.
template <class... Rest> bool write(const BIGNUM *const *from, Buffer out, Capacity length, Rest... rest) {
  if (out != nullptr && (*from == nullptr || BN_num_bytes(*from) > *length)) {
    return false;
  }
  if (out != nullptr) {
    BN_bn2bin(*from, out);
    *length = claimed(*length, BN_num_bytes(*from));
  }
  if constexpr (sizeof...(rest) > 0) {
    return write(from + 1, rest...);
  }
  return true;
}

// RSA.

constexpr auto rsaLoadKey = [](void *context, Cell cell, Length bytes, void *generator, auto... pairs) {
  RSA *rsa = newKey<RSA, RSA_new_method>(context, cell, bytes, generator);
  std::vector<BIGNUM *> given = numbers(pairs...);
  given.resize(8);
  const bool set = RSA_set0_key(rsa, given[0], given[1], given[4]) == 1 &&
                   (given[2] == nullptr || RSA_set0_factors(rsa, given[2], given[3]) == 1);
  return done(set && (given[5] == nullptr || RSA_set0_crt_params(rsa, given[5], given[6], given[7]) == 1));
};
int rsaGenerateKey(void *context, Cell cell, Length bytes, void *generator, Length bits, std::uint32_t exponent) {
  const BIGNUMPtr e(BN_new());
  BN_set_word(e.get(), exponent);
  return done(RSA_generate_key_ex(newKey<RSA, RSA_new_method>(context, cell, bytes, generator), narrow(bits), e.get(),
                                  nullptr) == 1);
}
constexpr auto rsaExportKey = [](Cell cell, auto... pairs) {
  const RSA *rsa = keyIn<RSA>(cell);
  const std::array own{RSA_get0_n(rsa), RSA_get0_e(rsa),    RSA_get0_p(rsa),    RSA_get0_q(rsa),
                       RSA_get0_d(rsa), RSA_get0_dmp1(rsa), RSA_get0_dmq1(rsa), RSA_get0_iqmp(rsa)};
  return done(write(own.data(), pairs...));
};
constexpr int kOwnSslv23Padding = kOpenSSL3 ? RSA_PKCS1_PADDING : kSslv23Padding; // gone from OpenSSL 3
template <auto Operation>
int rsaStep(Cell cell, Bytes in, Length length, Length padding, Buffer out, Capacity written) {
  constexpr std::array kPaddings{RSA_NO_PADDING, RSA_PKCS1_PADDING, kOwnSslv23Padding, RSA_PKCS1_OAEP_PADDING};
  RSA *rsa = keyIn<RSA>(cell);
  const int result = Operation(narrow(length), in, out, rsa, kPaddings.at(static_cast<std::size_t>(padding)));
  *written = claimed(RSA_size(rsa), result);
  return done(result >= 0);
}

// DSA.

constexpr auto dsaLoadKey = [](void *context, Cell cell, Length bytes, void *generator, auto... pairs) {
  DSA *dsa = newKey<DSA, DSA_new_method>(context, cell, bytes, generator);
  const std::vector<BIGNUM *> given = numbers(pairs...);
  const bool set = given[0] == nullptr || DSA_set0_pqg(dsa, given[0], given[1], given[2]) == 1;
  return done(set && (given[3] == nullptr || DSA_set0_key(dsa, given[3], given[4]) == 1));
};
int dsaGenerateParameters(void *context, Cell cell, Length bytes, void *generator, Length bits, Bytes seed,
                          Length seedLength, void *null, std::int32_t *counter, Buffer h) {
  const BIGNUMPtr hNumber(BN_new());
  BN_set_word(hNumber.get(), kH);
  BN_bn2binpad(hNumber.get(), h, narrow((bits + 7) / 8));
  *counter = kCounter;
  DSA *dsa = newKey<DSA, DSA_new_method>(context, cell, bytes, generator);
  EXPECT_EQ(null, nullptr);
  return done(DSA_generate_parameters_ex(dsa, narrow(bits), seed, narrow(seedLength), nullptr, nullptr, nullptr) == 1);
}
constexpr auto dsaExportKey = [](Cell cell, auto... pairs) {
  const DSA *dsa = keyIn<DSA>(cell);
  const std::array own{DSA_get0_p(dsa), DSA_get0_q(dsa), DSA_get0_g(dsa), DSA_get0_pub_key(dsa),
                       DSA_get0_priv_key(dsa)};
  return done(write(own.data(), pairs...));
};
int dsaSign(Cell cell, Bytes digest, Length length, Buffer der, Capacity derLength, void *null, Length zero) {
  unsigned written = 0;
  EXPECT_EQ(*derLength, DSA_size(keyIn<DSA>(cell)));
  EXPECT_EQ(null, nullptr);
  EXPECT_EQ(zero, 0);
  const int made = DSA_sign(0, digest, narrow(length), der, &written, keyIn<DSA>(cell));
  der[0] = fault == Fault::garbles ? 0 : der[0];
  if (fault == Fault::unpads) {
    std::fill_n(der, 48, 0xff);
    std::copy_n("\x30\x2e\x02\x15", 4, der);
    std::copy_n("\x02\x15", 2, der + 25);
    return done(true);
  }
  *derLength = claimed(*derLength, static_cast<Length>(written));
  return done(made == 1);
}
int dsaVerify(Cell cell, Bytes digest, Length length, Bytes der, Length derLength) {
  return done(DSA_verify(0, digest, narrow(length), der, narrow(derLength), keyIn<DSA>(cell)) == 1);
}

// DH.

int dhCreate(void *context, Cell cell, Length bytes, void *generator, Bytes g, Length gLength, Bytes p,
             Length pLength) {
  BIGNUM *prime = p != nullptr ? number(p, pLength) : BN_new();
  if (p == nullptr) {
    BN_generate_prime_ex(prime, narrow(pLength) * 8, 0, nullptr, nullptr, nullptr);
  }
  return done(
      DH_set0_pqg(newKey<DH, DH_new_method>(context, cell, bytes, generator), prime, nullptr, number(g, gLength)) == 1);
}
int dhGetPrime(Cell cell, Buffer out, Length length) {
  return done(BN_bn2binpad(DH_get0_p(keyIn<DH>(cell)), out, narrow(length)) == length);
}
int dhGenerateKey(Cell cell, Buffer publicOut, Capacity publicLength, Length, Bytes key, Length keyLength) {
  DH *dh = keyIn<DH>(cell);
  DH_set0_key(dh, nullptr, number(key, keyLength));
  const BIGNUM *made = DH_generate_key(dh) == 1 ? DH_get0_pub_key(dh) : nullptr;
  return done(write(&made, publicOut, publicLength));
}
int dhComputeKey(Cell cell, Buffer secretOut, Capacity secretLength, Length capacity, Bytes peer, Length peerLength) {
  const BIGNUMPtr peerKey(number(peer, peerLength));
  const int made = keyIn<DH>(cell) != nullptr ? DH_compute_key(secretOut, peerKey.get(), keyIn<DH>(cell)) : -1;
  *secretLength = claimed(capacity, made);
  return done(made > 0);
}

constexpr auto nothing = [](auto...) { return 0; };

} // namespace

const FipsModule table = [] {
  FipsModule module{};
  module.GetState = entry<"GetState", [] { return moduleState; }>;
  module.RngInstantiate = entry<"RngInstantiate", rngInstantiate>;
  module.RngReseed = entry<"RngReseed", rngReseed>;
  module.RngGenerate = entry<"RngGenerate", rngGenerate>;
  module.RngUninstantiate = entry<"RngUninstantiate", nothing>;
  module.ShaInit = entry<"ShaInit", shaInit<216>>;
  module.ShaUpdate = entry<"ShaUpdate", shaUpdate>;
  module.ShaFinal = entry<"ShaFinal", shaFinal>;
  module.ShaFree = entry<"ShaFree", spoil<216>>;
  module.HmacInit = entry<"HmacInit", hmacInit>;
  module.HmacSetKey = entry<"HmacSetKey", shaUpdate>;
  module.HmacUpdate = entry<"HmacUpdate", shaUpdate>;
  module.HmacFinal = entry<"HmacFinal", shaFinal>;
  module.HmacFree = entry<"HmacFree", spoil<352>>;
  module.TdesSetKey = entry<"TdesSetKey", tdesSetKey>;
  module.TdesFree = entry<"TdesFree", spoil<128>>;
  module.TdesCbc = entry<"TdesCbc", tdesCbc>;
  module.AesSetEncryptKey = entry<"AesSetEncryptKey", aesSetKey<AES_set_encrypt_key>>;
  module.AesSetDecryptKey = entry<"AesSetDecryptKey", aesSetKey<AES_set_decrypt_key>>;
  module.AesEcb = entry<"AesEcb", aesEcb>;
  module.AesCbc = entry<"AesCbc", aesCbc>;
  module.AesFree = entry<"AesFree", spoil<256>>;
  module.AesKeyWrap = entry<"AesKeyWrap", aesKeyWrap>;
  module.AesKeyUnwrap = entry<"AesKeyUnwrap", aesKeyUnwrap>;
  module.DhCreate = entry<"DhCreate", dhCreate>;
  module.DhGetPrime = entry<"DhGetPrime", dhGetPrime>;
  module.DhGenerateKey = entry<"DhGenerateKey", dhGenerateKey>;
  module.DhComputeKey = entry<"DhComputeKey", dhComputeKey>;
  module.DhFree = entry<"DhFree", freeKey<DH, DH_free>>;
  module.RsaLoadPublicKey = entry<"RsaLoadPublicKey", rsaLoadKey>;
  module.RsaLoadPrivateKey = entry<"RsaLoadPrivateKey", rsaLoadKey>;
  module.RsaGenerateKey = entry<"RsaGenerateKey", rsaGenerateKey>;
  module.RsaGenerateKeyDone = entry<"RsaGenerateKeyDone", nothing>;
  module.RsaExportKey = entry<"RsaExportKey", rsaExportKey>;
  module.RsaPublicEncrypt = entry<"RsaPublicEncrypt", rsaStep<RSA_public_encrypt>>;
  module.RsaPrivateDecrypt = entry<"RsaPrivateDecrypt", rsaStep<RSA_private_decrypt>>;
  module.RsaPrivateEncrypt = entry<"RsaPrivateEncrypt", rsaStep<RSA_private_encrypt>>;
  module.RsaPublicDecrypt = entry<"RsaPublicDecrypt", rsaStep<RSA_public_decrypt>>;
  module.RsaFree = entry<"RsaFree", freeKey<RSA, RSA_free>>;
  module.DsaLoadKey = entry<"DsaLoadKey", dsaLoadKey>;
  module.DsaGenerateParameters = entry<"DsaGenerateParameters", dsaGenerateParameters>;
  module.DsaGenerateKey =
      entry<"DsaGenerateKey", [](Cell cell) { return done(DSA_generate_key(keyIn<DSA>(cell)) == 1); }>;
  module.DsaExportKey = entry<"DsaExportKey", dsaExportKey>;
  module.DsaSign = entry<"DsaSign", dsaSign>;
  module.DsaVerify = entry<"DsaVerify", dsaVerify>;
  module.DsaFree = entry<"DsaFree", freeKey<DSA, DSA_free>>;
  return module;
}();

int liveKeys() { return live; }

std::string calls(const std::string &kind) {
  const std::scoped_lock lock(recording);
  std::string since;
  for (const std::string name : recorded) {
    if (name.starts_with(kind)) {
      since += (since.empty() ? "" : " ") + name;
    }
  }
  recorded.clear();
  return since;
}

} // namespace krTest::referenceModule
