#include "support/ReferenceModule.h"

#include "support/Allocations.h"

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

constexpr int kOk = 0;
constexpr int kRefused = 1;
constexpr int done(bool success) { return success ? kOk : kRefused; }

// The record.

std::mutex recording;
Lines recorded;

std::string text(const void *pointer) {
  return pointer == nullptr                         ? "null"
         : pointer == krOpenSSL::fipsModuleContext  ? "context"
         : pointer == krOpenSSL::fipsGeneratorState ? "generator"
                                                    : "area";
}
std::string text(Bytes bytes) { return bytes == nullptr ? "null" : "in"; }
std::string text(Buffer bytes) { return bytes == nullptr ? "null" : "out"; }
std::string text(Cell) { return "cell"; }
std::string text(Length number) { return std::to_string(number); }
std::string text(std::uint32_t number) { return std::to_string(number) + "u"; }
std::string text(Capacity length) { return length == nullptr ? "null" : '[' + std::to_string(*length) + ']'; }
std::string text(const std::int32_t *) { return "counter"; }

template <std::size_t Size> struct Name {
  char text[Size]{};
  constexpr Name(const char (&name)[Size]) { std::copy_n(name, Size, text); } // NOLINT: meant to convert
};

template <Name kName, auto kWork, class... Arguments> int entry(Arguments... arguments) {
  const allocations::Spared spared;
  {
    std::string line = kName.text;
    ((line += ' ' + text(arguments)), ...);
    const std::scoped_lock lock(recording);
    recorded.push_back(line);
  }
  return failing == kName.text ? kFailure : kWork(arguments...);
}

// The generator, over OpenSSL's own.

int rngInstantiate(void *, void *, Length, Bytes, Length, Length) { return kOk; }
int rngReseed(void *, Bytes, Length length) { return static_cast<int>(length); }
int rngGenerate(void *, Buffer out, Length length) {
  return done(RAND_OpenSSL()->bytes(out, static_cast<int>(length)) == 1);
}
int rngUninstantiate(void *) { return kOk; }

// Digests: the area holds OpenSSL's context, and at its end, where SHA-512 has it anyway, the digest's size.

constexpr std::size_t kShaAreaBytes = 216;
static_assert(sizeof(SHA512_CTX) == kShaAreaBytes && offsetof(SHA512_CTX, md_len) == kShaAreaBytes - 4);

unsigned &sizeIn(void *area) { return static_cast<SHA512_CTX *>(area)->md_len; }

int shaInit(void *, void *area, Length, Length size) {
  const int result = size == 20   ? SHA1_Init(static_cast<SHA_CTX *>(area))
                     : size == 28 ? SHA224_Init(static_cast<SHA256_CTX *>(area))
                     : size == 32 ? SHA256_Init(static_cast<SHA256_CTX *>(area))
                     : size == 48 ? SHA384_Init(static_cast<SHA512_CTX *>(area))
                                  : SHA512_Init(static_cast<SHA512_CTX *>(area));
  sizeIn(area) = static_cast<unsigned>(size);
  return done(result == 1);
}
int shaUpdate(void *area, Bytes data, Length length) {
  const auto count = static_cast<std::size_t>(length);
  return done((sizeIn(area) == 20   ? SHA1_Update(static_cast<SHA_CTX *>(area), data, count)
               : sizeIn(area) <= 32 ? SHA256_Update(static_cast<SHA256_CTX *>(area), data, count)
                                    : SHA512_Update(static_cast<SHA512_CTX *>(area), data, count)) == 1);
}
int shaFinal(void *area, Buffer out) {
  return done((sizeIn(area) == 20   ? SHA1_Final(out, static_cast<SHA_CTX *>(area))
               : sizeIn(area) <= 32 ? SHA256_Final(out, static_cast<SHA256_CTX *>(area))
                                    : SHA512_Final(out, static_cast<SHA512_CTX *>(area))) == 1);
}
int shaFree(void *area) {
  std::memset(area, 0xEE, kShaAreaBytes);
  return kOk;
}

// Ciphers.

int tdesSetKey(void *, void *schedule, Length, Bytes key) {
  DES_cblock block;
  std::copy_n(key, sizeof block, block);
  DES_set_key_unchecked(&block, static_cast<DES_key_schedule *>(schedule));
  return kOk;
}
int tdesFree(void *schedule) {
  std::memset(schedule, 0xEE, 128);
  return kOk;
}
int tdesCbc(void *first, void *second, void *third, Bytes in, Buffer out, Length length, Bytes iv, Buffer ivOut,
            Length encrypt) {
  DES_ede3_cbc_encrypt(in, out, static_cast<long>(length), static_cast<DES_key_schedule *>(first), static_cast<DES_key_schedule *>(second),
                       static_cast<DES_key_schedule *>(third), reinterpret_cast<DES_cblock *>(ivOut),
                       static_cast<int>(encrypt));
  return done(iv == ivOut);
}

int aesSetEncryptKey(void *, void *area, Length, Bytes key, Length bits) {
  return done(AES_set_encrypt_key(key, static_cast<int>(bits), static_cast<AES_KEY *>(area)) == 0);
}
int aesSetDecryptKey(void *, void *area, Length, Bytes key, Length bits) {
  return done(AES_set_decrypt_key(key, static_cast<int>(bits), static_cast<AES_KEY *>(area)) == 0);
}
int aesEcb(void *area, Bytes in, Buffer out, Length length, Length encrypt) {
  for (Length at = 0; at < length; at += AES_BLOCK_SIZE) {
    (encrypt != 0 ? AES_encrypt : AES_decrypt)(in + at, out + at, static_cast<AES_KEY *>(area));
  }
  return kOk;
}
int aesCbc(void *area, Bytes in, Buffer out, Length length, Bytes iv, Buffer ivOut, Length encrypt) {
  AES_cbc_encrypt(in, out, static_cast<std::size_t>(length), static_cast<AES_KEY *>(area), ivOut,
                  static_cast<int>(encrypt));
  return done(iv == ivOut);
}
int aesFree(void *area) {
  std::memset(area, 0xEE, 256);
  return kOk;
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

template <class Key, auto New> Key *newKey(Cell cell) {
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
  return kOk;
}

BIGNUM *number(Bytes bytes, Length length) {
  return bytes != nullptr ? BN_bin2bn(bytes, static_cast<int>(length), nullptr) : nullptr;
}

bool write(const BIGNUM *from, Buffer out, Capacity length) {
  if (out == nullptr) {
    return length == nullptr;
  }
  if (from == nullptr || BN_num_bytes(from) > *length) {
    return false;
  }
  BN_bn2bin(from, out);
  *length = fault == Fault::overstates ? *length + 1 : BN_num_bytes(from);
  return true;
}

// RSA.

int rsaLoadPublicKey(void *, Cell cell, Length, void *, Bytes n, Length nLength, Bytes e, Length eLength) {
  return done(RSA_set0_key(newKey<RSA, RSA_new_method>(cell), number(n, nLength), number(e, eLength), nullptr) == 1);
}
int rsaLoadPrivateKey(void *, Cell cell, Length, void *, Bytes n, Length nLength, Bytes e, Length eLength, Bytes p,
                      Length pLength, Bytes q, Length qLength, Bytes d, Length dLength, Bytes dmp1, Length dmp1Length,
                      Bytes dmq1, Length dmq1Length, Bytes iqmp, Length iqmpLength) {
  RSA *rsa = newKey<RSA, RSA_new_method>(cell);
  bool set = RSA_set0_key(rsa, number(n, nLength), number(e, eLength), number(d, dLength)) == 1;
  set = set && RSA_set0_factors(rsa, number(p, pLength), number(q, qLength)) == 1;
  return done(set && (dmp1 == nullptr || RSA_set0_crt_params(rsa, number(dmp1, dmp1Length), number(dmq1, dmq1Length),
                                                             number(iqmp, iqmpLength)) == 1));
}
int rsaGenerateKey(void *, Cell cell, Length, void *, Length bits, std::uint32_t exponent) {
  const BIGNUMPtr e(BN_new());
  BN_set_word(e.get(), exponent);
  return done(RSA_generate_key_ex(newKey<RSA, RSA_new_method>(cell), static_cast<int>(bits), e.get(), nullptr) == 1);
}
int rsaGenerateKeyDone(Cell) { return kOk; }
int rsaExportKey(Cell cell, Buffer n, Capacity nLength, Buffer e, Capacity eLength, Buffer p, Capacity pLength,
                 Buffer q, Capacity qLength, Buffer d, Capacity dLength, Buffer dmp1, Capacity dmp1Length, Buffer dmq1,
                 Capacity dmq1Length, Buffer iqmp, Capacity iqmpLength) {
  const RSA *rsa = keyIn<RSA>(cell);
  return done(write(RSA_get0_n(rsa), n, nLength) && write(RSA_get0_e(rsa), e, eLength) &&
              write(RSA_get0_p(rsa), p, pLength) && write(RSA_get0_q(rsa), q, qLength) &&
              write(RSA_get0_d(rsa), d, dLength) && write(RSA_get0_dmp1(rsa), dmp1, dmp1Length) &&
              write(RSA_get0_dmq1(rsa), dmq1, dmq1Length) && write(RSA_get0_iqmp(rsa), iqmp, iqmpLength));
}
template <auto Operation>
int rsaStep(Cell cell, Bytes in, Length length, Length padding, Buffer out, Capacity written) {
  constexpr std::array kPaddings{RSA_NO_PADDING, RSA_PKCS1_PADDING, RSA_SSLV23_PADDING, RSA_PKCS1_OAEP_PADDING};
  const int result =
      Operation(static_cast<int>(length), in, out, keyIn<RSA>(cell), kPaddings.at(static_cast<std::size_t>(padding)));
  *written = fault == Fault::overstates ? RSA_size(keyIn<RSA>(cell)) + 1 : result;
  return done(result >= 0);
}

// DSA.

int dsaLoadKey(void *, Cell cell, Length, void *, Bytes p, Length pLength, Bytes q, Length qLength, Bytes g,
               Length gLength, Bytes publicKey, Length publicLength, Bytes privateKey, Length privateLength) {
  DSA *dsa = newKey<DSA, DSA_new_method>(cell);
  const bool set = p == nullptr || DSA_set0_pqg(dsa, number(p, pLength), number(q, qLength), number(g, gLength)) == 1;
  return done(set && (publicKey == nullptr ||
                      DSA_set0_key(dsa, number(publicKey, publicLength), number(privateKey, privateLength)) == 1));
}
int dsaGenerateParameters(void *, Cell cell, Length, void *, Length bits, Bytes seed, Length seedLength, void *,
                          std::int32_t *counter, Buffer h) {
  const int made = DSA_generate_parameters_ex(newKey<DSA, DSA_new_method>(cell), static_cast<int>(bits), seed,
                                              static_cast<int>(seedLength), nullptr, nullptr, nullptr);
  const BIGNUMPtr number(BN_new());
  BN_set_word(number.get(), kH);
  BN_bn2binpad(number.get(), h, static_cast<int>((bits + 7) / 8));
  *counter = kCounter;
  return done(made == 1);
}
int dsaGenerateKey(Cell cell) { return done(DSA_generate_key(keyIn<DSA>(cell)) == 1); }
int dsaExportKey(Cell cell, Buffer p, Capacity pLength, Buffer q, Capacity qLength, Buffer g, Capacity gLength,
                 Buffer publicKey, Capacity publicLength, Buffer privateKey, Capacity privateLength) {
  const DSA *dsa = keyIn<DSA>(cell);
  return done(write(DSA_get0_p(dsa), p, pLength) && write(DSA_get0_q(dsa), q, qLength) &&
              write(DSA_get0_g(dsa), g, gLength) && write(DSA_get0_pub_key(dsa), publicKey, publicLength) &&
              write(DSA_get0_priv_key(dsa), privateKey, privateLength));
}
int dsaSign(Cell cell, Bytes digest, Length length, Buffer der, Capacity derLength, void *, Length) {
  DSA *dsa = keyIn<DSA>(cell);
  EXPECT_EQ(*derLength, DSA_size(dsa));
  unsigned written = 0;
  const int made = DSA_sign(0, digest, static_cast<int>(length), der, &written, dsa);
  der[0] = fault == Fault::garbles ? 0 : der[0];
  *derLength = fault == Fault::overstates ? *derLength + 1 : static_cast<Length>(written);
  return done(made == 1);
}
int dsaVerify(Cell cell, Bytes digest, Length length, Bytes der, Length derLength) {
  return done(DSA_verify(0, digest, static_cast<int>(length), der, static_cast<int>(derLength), keyIn<DSA>(cell)) == 1);
}

// DH.

int dhCreate(void *, Cell cell, Length, void *, Bytes g, Length gLength, Bytes p, Length pLength) {
  BIGNUM *prime = p != nullptr ? number(p, pLength) : BN_new();
  if (p == nullptr) {
    BN_generate_prime_ex(prime, static_cast<int>(pLength) * 8, 0, nullptr, nullptr, nullptr);
  }
  return done(DH_set0_pqg(newKey<DH, DH_new_method>(cell), prime, nullptr, number(g, gLength)) == 1);
}
int dhGetPrime(Cell cell, Buffer out, Length length) {
  return done(BN_bn2binpad(DH_get0_p(keyIn<DH>(cell)), out, static_cast<int>(length)) == length);
}
int dhGenerateKey(Cell cell, Buffer publicOut, Capacity publicLength, Length capacity, Bytes privateKey,
                  Length privateLength) {
  DH *dh = keyIn<DH>(cell);
  EXPECT_EQ(*publicLength, capacity);
  DH_set0_key(dh, nullptr, number(privateKey, privateLength));
  return done(DH_generate_key(dh) == 1 && write(DH_get0_pub_key(dh), publicOut, publicLength));
}
int dhComputeKey(Cell cell, Buffer secretOut, Capacity secretLength, Length capacity, Bytes peer, Length peerLength) {
  const BIGNUMPtr peerKey(number(peer, peerLength));
  const int made = keyIn<DH>(cell) != nullptr ? DH_compute_key(secretOut, peerKey.get(), keyIn<DH>(cell)) : -1;
  *secretLength = fault == Fault::overstates ? capacity + 1 : made;
  return done(made > 0);
}

FipsModule make() {
  FipsModule module{};
  module.GetState = entry<"GetState", [] { return 1; }>;
  module.RngInstantiate = entry<"RngInstantiate", rngInstantiate>;
  module.RngReseed = entry<"RngReseed", rngReseed>;
  module.RngGenerate = entry<"RngGenerate", rngGenerate>;
  module.RngUninstantiate = entry<"RngUninstantiate", rngUninstantiate>;
  module.ShaInit = entry<"ShaInit", shaInit>;
  module.ShaUpdate = entry<"ShaUpdate", shaUpdate>;
  module.ShaFinal = entry<"ShaFinal", shaFinal>;
  module.ShaFree = entry<"ShaFree", shaFree>;
  module.TdesSetKey = entry<"TdesSetKey", tdesSetKey>;
  module.TdesFree = entry<"TdesFree", tdesFree>;
  module.TdesCbc = entry<"TdesCbc", tdesCbc>;
  module.AesSetEncryptKey = entry<"AesSetEncryptKey", aesSetEncryptKey>;
  module.AesSetDecryptKey = entry<"AesSetDecryptKey", aesSetDecryptKey>;
  module.AesEcb = entry<"AesEcb", aesEcb>;
  module.AesCbc = entry<"AesCbc", aesCbc>;
  module.AesFree = entry<"AesFree", aesFree>;
  module.DhCreate = entry<"DhCreate", dhCreate>;
  module.DhGetPrime = entry<"DhGetPrime", dhGetPrime>;
  module.DhGenerateKey = entry<"DhGenerateKey", dhGenerateKey>;
  module.DhComputeKey = entry<"DhComputeKey", dhComputeKey>;
  module.DhFree = entry<"DhFree", freeKey<DH, DH_free>>;
  module.RsaLoadPublicKey = entry<"RsaLoadPublicKey", rsaLoadPublicKey>;
  module.RsaLoadPrivateKey = entry<"RsaLoadPrivateKey", rsaLoadPrivateKey>;
  module.RsaGenerateKey = entry<"RsaGenerateKey", rsaGenerateKey>;
  module.RsaGenerateKeyDone = entry<"RsaGenerateKeyDone", rsaGenerateKeyDone>;
  module.RsaExportKey = entry<"RsaExportKey", rsaExportKey>;
  module.RsaPublicEncrypt = entry<"RsaPublicEncrypt", rsaStep<RSA_public_encrypt>>;
  module.RsaPrivateDecrypt = entry<"RsaPrivateDecrypt", rsaStep<RSA_private_decrypt>>;
  module.RsaPrivateEncrypt = entry<"RsaPrivateEncrypt", rsaStep<RSA_private_encrypt>>;
  module.RsaPublicDecrypt = entry<"RsaPublicDecrypt", rsaStep<RSA_public_decrypt>>;
  module.RsaFree = entry<"RsaFree", freeKey<RSA, RSA_free>>;
  module.DsaLoadKey = entry<"DsaLoadKey", dsaLoadKey>;
  module.DsaGenerateParameters = entry<"DsaGenerateParameters", dsaGenerateParameters>;
  module.DsaGenerateKey = entry<"DsaGenerateKey", dsaGenerateKey>;
  module.DsaExportKey = entry<"DsaExportKey", dsaExportKey>;
  module.DsaSign = entry<"DsaSign", dsaSign>;
  module.DsaVerify = entry<"DsaVerify", dsaVerify>;
  module.DsaFree = entry<"DsaFree", freeKey<DSA, DSA_free>>;
  return module;
}

} // namespace

const FipsModule table = make();

int liveKeys() { return live; }

Lines calls(const std::string &kind) {
  const std::scoped_lock lock(recording);
  Lines since;
  std::copy_if(recorded.begin(), recorded.end(), std::back_inserter(since),
               [&](const std::string &line) { return line.starts_with(kind); });
  recorded.clear();
  return since;
}

} // namespace krTest::referenceModule
