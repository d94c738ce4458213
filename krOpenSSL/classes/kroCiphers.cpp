// AES-CBC, triple-DES-CBC and RC4.
#include <krOpenSSL/kroCiphers.h>

#include "CipherContext.h"
#include "LegacyAlgorithms.h"
#include "Lengths.h"
#include "Usable.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"

#include <openssl/evp.h>

#include <cstring>
#include <memory>

using namespace krOpenSSL;

namespace {

struct TracedCleanup {
  void operator()(EVP_CIPHER_CTX *context) const noexcept { krEVP_CIPHER_CTX_Cleanup(context); }
};
using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, TracedCleanup>;

enum Direction { kDecrypt = 0, kEncrypt = 1 };

struct CbcCall {
  unsigned char *out;
  const unsigned char *iv;
  const unsigned char *key;
  const unsigned char *in;
  std::uint64_t len;
};

/// One-shot CBC; @p reportFailure tells of a context that could not be allocated.
template <class Report>
void transformCbc(const EVP_CIPHER *cipher, Direction direction, const CbcCall &call, Report reportFailure) noexcept {
  const auto length = intLength(call.len);
  if (!length || call.out == nullptr || call.iv == nullptr || call.key == nullptr || call.in == nullptr) {
    return;
  }
  const CipherContext context(krEVP_CIPHER_CTX_new());
  if (!context) {
    reportFailure();
    return;
  }
  if (!canBegin() || EVP_CipherInit_ex(context.get(), cipher, nullptr, call.key, call.iv, direction) != 1) {
    return;
  }
  EVP_CIPHER_CTX_set_padding(context.get(), 0);
  int written = 0;
  EVP_CipherUpdate(context.get(), call.out, &written, call.in, *length);
}

template <unsigned Bits> const EVP_CIPHER *aesCbc() noexcept;
template <> const EVP_CIPHER *aesCbc<128>() noexcept { return EVP_aes_128_cbc(); }
template <> const EVP_CIPHER *aesCbc<192>() noexcept { return EVP_aes_192_cbc(); }
template <> const EVP_CIPHER *aesCbc<256>() noexcept { return EVP_aes_256_cbc(); }

template <unsigned Bits> void transformAes(Direction direction, const CbcCall &call) noexcept {
  transformCbc(aesCbc<Bits>(), direction, call,
               [] { krTraceLog(kTraceTag, "Unable to allocate memory for EVP_CIPHER_CTX"); });
}

void transformDes3(Direction direction, const CbcCall &call) noexcept {
  transformCbc(EVP_des_ede3_cbc(), direction, call,
               [] { krTraceLog(kTraceTag, "%s: Unable to allocate memory for EVP_CIPHER_CTX", "Process"); });
}

EVP_CIPHER_CTX *newRc4Context() noexcept {
  EVP_CIPHER_CTX *context = krEVP_CIPHER_CTX_new();
  if (context == nullptr) {
    krTraceLog(kTraceTag, "%s: Unable to allocate memory for EVP_CIPHER_CTX", "kroRC4::kroRC4");
  }
  return context;
}

bool keyRc4(EVP_CIPHER_CTX *context, const unsigned char *key, int length) noexcept {
  EVP_CIPHER_CTX_set_flags(context, EVP_CIPH_FLAG_NON_FIPS_ALLOW);
  return canBegin() && EVP_CipherInit_ex(context, rc4(), nullptr, nullptr, nullptr, kEncrypt) == 1 &&
         EVP_CIPHER_CTX_set_key_length(context, length) == 1 &&
         EVP_CipherInit_ex(context, nullptr, nullptr, key, nullptr, kEncrypt) == 1;
}

} // namespace

template <unsigned Bits>
void kroAESCipher<Bits>::Encrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key,
                                 const unsigned char *in, std::uint64_t len) {
  transformAes<Bits>(kEncrypt, {out, iv, key, in, len});
}

template <unsigned Bits>
void kroAESCipher<Bits>::Decrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key,
                                 const unsigned char *in, std::uint64_t len) {
  transformAes<Bits>(kDecrypt, {out, iv, key, in, len});
}

template <unsigned Bits> kroAESCipher<Bits> &kroAESCipher<Bits>::operator=(const kroAESCipher &) = default;
template <unsigned Bits> kroAESCipher<Bits> &kroAESCipher<Bits>::operator=(kroAESCipher &&) noexcept = default;

template class kroAESCipher<128>;
template class kroAESCipher<192>;
template class kroAESCipher<256>;

void kroDES3CBCCipher::Encrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key,
                               const unsigned char *in, std::uint64_t len) {
  transformDes3(kEncrypt, {out, iv, key, in, len});
}

void kroDES3CBCCipher::Decrypt(unsigned char *out, const unsigned char *iv, const unsigned char *key,
                               const unsigned char *in, std::uint64_t len) {
  transformDes3(kDecrypt, {out, iv, key, in, len});
}

kroDES3CBCCipher &kroDES3CBCCipher::operator=(const kroDES3CBCCipher &) = default;
kroDES3CBCCipher &kroDES3CBCCipher::operator=(kroDES3CBCCipher &&) noexcept = default;

kroRC4::kroRC4() : context_(newRc4Context()) {}

kroRC4::kroRC4(const unsigned char *key, std::uint64_t len) : kroRC4() { SetKey(key, len); }

kroRC4::kroRC4(const kroRC4 &other) : kroRC4() { *this = other; }

kroRC4::~kroRC4() {
  krEVP_CIPHER_CTX_Cleanup(context_);
  context_ = nullptr;
}

kroRC4 &kroRC4::operator=(const kroRC4 &other) {
  if (this == &other) {
    return *this;
  }
  if (context_ == nullptr) {
    context_ = newRc4Context();
  }
  copyOrReset(context_, other.context_);
  return *this;
}

void kroRC4::SetKey(const unsigned char *key, std::uint64_t len) {
  if (context_ == nullptr) {
    return;
  }
  const auto length = intLength(len);
  if (key == nullptr || !length || *length == 0 || !keyRc4(context_, key, *length)) {
    EVP_CIPHER_CTX_reset(context_);
  }
}

void kroRC4::Transform(unsigned char *out, const unsigned char *in, std::uint64_t len) {
  const auto length = intLength(len);
  if (!length || out == nullptr || in == nullptr || !isKeyed(context_)) {
    return;
  }
  int written = 0;
  EVP_CipherUpdate(context_, out, &written, in, *length);
}

void kroRC4::__autoclassinit2(std::uint64_t n) { std::memset(static_cast<void *>(this), 0, n); }
