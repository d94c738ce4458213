// The bridge's ciphers as one table, their selector, and the callbacks that hand the work to the module.
#include "fipsbridge/qvCiphers.h"

#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "fipsbridge/EngineMethods.h"
#include "state/FipsState.h"

#include <algorithm>

using namespace krOpenSSL;

namespace {

constexpr int kScheduleBytes = 128;
constexpr int kAesAreaBytes = 256;
constexpr int kDesKeyBytes = 8;

/// What OpenSSL keeps for a triple DES context: a key schedule for each third of the key.
using Schedule = std::array<unsigned char, kScheduleBytes>;
using Schedules = std::array<Schedule, 3>;

/// The state area of a context; null, with a message in the callback's name, when it has none.
void *areaOf(const EVP_CIPHER_CTX *ctx, const char *callback) noexcept {
  void *area = krEVP_CIPHER_CTX_get_cipher_data(ctx);
  if (area == nullptr) {
    krTraceLog(kTraceTag, "%s: ctx->cipher_data is NULL", callback);
  }
  return area;
}

/// The clean-up without a module, which has to fail. OpenSSL then keeps the area, and with it the keys, for
/// good: so a context of the bridge gives it back first.
int abandonArea(EVP_CIPHER_CTX *ctx, int (*cleanup)(EVP_CIPHER_CTX *)) noexcept {
  const EVP_CIPHER *cipher = EVP_CIPHER_CTX_cipher(ctx);
  if (cipher != nullptr && EVP_CIPHER_meth_get_cleanup(cipher) == cleanup) {
    OPENSSL_clear_free(EVP_CIPHER_CTX_set_cipher_data(ctx, nullptr),
                       static_cast<std::size_t>(EVP_CIPHER_impl_ctx_size(cipher)));
  }
  return 0;
}

/// Both views of the context's one IV buffer, which the module carries forward.
struct Iv {
  const unsigned char *in;
  unsigned char *out;
};

bool readIv(EVP_CIPHER_CTX *ctx, Iv &iv, const char *callback) noexcept {
  iv = {krEVP_CIPHER_CTX_iv(ctx), krEVP_CIPHER_CTX_iv_noconst(ctx)};
  if (iv.in == nullptr || iv.out == nullptr) {
    krTraceLog(kTraceTag, "%s: ctx->iv is NULL", callback);
    return false;
  }
  return true;
}

int directionOf(const EVP_CIPHER_CTX *ctx, const char *callback) noexcept {
  const int encrypt = krEVP_CIPHER_CTX_encrypting(ctx);
  krTraceLog(kTraceTag, "%s: ctx->encrypt: %d", callback, encrypt);
  return encrypt;
}

// Gives the context its IV and direction. Without the key OpenSSL does not come back to the init callback.
int complete(EVP_CIPHER_CTX *ctx, const unsigned char *iv, int enc) noexcept {
  return EVP_CipherInit_ex(ctx, nullptr, nullptr, nullptr, iv, enc) > 0 ? 1 : 0;
}

int qv_init_key_3des(EVP_CIPHER_CTX *ctx, const unsigned char *key, const unsigned char *iv, int enc) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return 0;
  }
  auto *schedules = static_cast<Schedules *>(areaOf(ctx, __func__));
  if (schedules == nullptr) {
    return 0;
  }
  for (Schedule &schedule : *schedules) {
    module->TdesSetKey(fipsModuleContext, schedule.data(), kScheduleBytes, key);
    key += kDesKeyBytes;
  }
  return complete(ctx, iv, enc);
}

int qv_init_key_aes(EVP_CIPHER_CTX *ctx, const unsigned char *key, const unsigned char *iv, int enc) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return 0;
  }
  void *area = areaOf(ctx, __func__);
  if (area == nullptr) {
    return 0;
  }
  const int keyBits = EVP_CIPHER_key_length(EVP_CIPHER_CTX_cipher(ctx)) * 8;
  const auto setKey = enc != 0 ? module->AesSetEncryptKey : module->AesSetDecryptKey;
  setKey(fipsModuleContext, area, kAesAreaBytes, key, keyBits);
  return complete(ctx, iv, enc);
}

/// What the chained ciphers do alike. @p work runs the module's entry over the area.
template <class Area, class Work> int cipherChained(EVP_CIPHER_CTX *ctx, const char *callback, Work work) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  Iv iv{};
  if (module == nullptr || !readIv(ctx, iv, callback)) {
    return 0;
  }
  const int encrypt = directionOf(ctx, callback);
  auto *area = static_cast<Area *>(areaOf(ctx, callback));
  return area != nullptr && work(*module, area, iv, encrypt) == 0 ? 1 : 0;
}

int qv_cipher_3des(EVP_CIPHER_CTX *ctx, unsigned char *out, const unsigned char *in, std::size_t len) noexcept {
  const auto work = [=](const FipsModule &module, Schedules *schedules, const Iv &iv, int encrypt) {
    auto &[first, second, third] = *schedules;
    return module.TdesCbc(first.data(), second.data(), third.data(), in, out, static_cast<FipsModule::Length>(len),
                          iv.in, iv.out, encrypt);
  };
  return cipherChained<Schedules>(ctx, __func__, work);
}

int qv_cipher_aes_cbc(EVP_CIPHER_CTX *ctx, unsigned char *out, const unsigned char *in, std::size_t len) noexcept {
  const auto work = [=](const FipsModule &module, void *area, const Iv &iv, int encrypt) {
    return module.AesCbc(area, in, out, static_cast<FipsModule::Length>(len), iv.in, iv.out, encrypt);
  };
  return cipherChained<void>(ctx, __func__, work);
}

int qv_cipher_aes_ecb(EVP_CIPHER_CTX *ctx, unsigned char *out, const unsigned char *in, std::size_t len) noexcept {
  const ErrorQueueScope errors;
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return 0;
  }
  const int encrypt = directionOf(ctx, __func__);
  void *area = areaOf(ctx, __func__);
  if (area == nullptr) {
    return 0;
  }
  return module->AesEcb(area, in, out, static_cast<FipsModule::Length>(len), encrypt) == 0 ? 1 : 0;
}

// No look at the error queue here, nor in the other clean-ups: OpenSSL frees contexts of its own when a thread ends,
// after the thread's queue has gone.
int qv_cleanup_3des(EVP_CIPHER_CTX *ctx) noexcept {
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return abandonArea(ctx, qv_cleanup_3des);
  }
  auto *schedules = static_cast<Schedules *>(areaOf(ctx, __func__));
  if (schedules == nullptr) {
    return 0;
  }
  for (Schedule &schedule : *schedules) {
    module->TdesFree(schedule.data());
  }
  return 1;
}

int qv_cleanup_aes(EVP_CIPHER_CTX *ctx) noexcept {
  const FipsModule *module = attachedModule();
  if (module == nullptr) {
    return abandonArea(ctx, qv_cleanup_aes);
  }
  void *area = areaOf(ctx, __func__);
  if (area == nullptr) {
    return 0;
  }
  module->AesFree(area);
  return 1;
}

/// How a kind of cipher works: its callbacks and the state that OpenSSL keeps for them.
struct CipherWork {
  unsigned long flags;
  int (*init)(EVP_CIPHER_CTX *, const unsigned char *, const unsigned char *, int);
  int (*doCipher)(EVP_CIPHER_CTX *, unsigned char *, const unsigned char *, std::size_t);
  int (*cleanup)(EVP_CIPHER_CTX *);
  int contextBytes;
};

constexpr unsigned long kEcbFlags = EVP_CIPH_ECB_MODE | EVP_CIPH_NO_PADDING;
constexpr CipherWork kTdesCbc{EVP_CIPH_CBC_MODE, qv_init_key_3des, qv_cipher_3des, qv_cleanup_3des, sizeof(Schedules)};
constexpr CipherWork kAesCbc{EVP_CIPH_CBC_MODE, qv_init_key_aes, qv_cipher_aes_cbc, qv_cleanup_aes, kAesAreaBytes};
constexpr CipherWork kAesEcb{kEcbFlags, qv_init_key_aes, qv_cipher_aes_ecb, qv_cleanup_aes, kAesAreaBytes};

struct CipherRow {
  int nid;
  int blockBytes;
  int keyBytes;
  int ivBytes;
  const CipherWork &work;
};

// The ECB ciphers, too, declare an IV.
constexpr std::array<CipherRow, kCipherCount> kCiphers{{
    {NID_des_ede3_cbc, 8, 24, 8, kTdesCbc},
    {NID_aes_128_cbc, 16, 16, 16, kAesCbc},
    {NID_aes_192_cbc, 16, 24, 16, kAesCbc},
    {NID_aes_256_cbc, 16, 32, 16, kAesCbc},
    {NID_aes_128_ecb, 16, 16, 16, kAesEcb},
    {NID_aes_192_ecb, 16, 24, 16, kAesEcb},
    {NID_aes_256_ecb, 16, 32, 16, kAesEcb},
}};

constexpr auto kCipherNids = [] {
  std::array<int, kCipherCount> nids{};
  std::transform(kCiphers.begin(), kCiphers.end(), nids.begin(), [](const CipherRow &row) { return row.nid; });
  return nids;
}();

EVP_CIPHER *buildCipher(const CipherRow &row) noexcept {
  Handle<EVP_CIPHER, EVP_CIPHER_meth_free> cipher(EVP_CIPHER_meth_new(row.nid, row.blockBytes, row.keyBytes));
  const CipherWork &work = row.work;
  const bool whole = cipher && EVP_CIPHER_meth_set_iv_length(cipher.get(), row.ivBytes) != 0 &&
                     EVP_CIPHER_meth_set_flags(cipher.get(), work.flags) != 0 &&
                     EVP_CIPHER_meth_set_init(cipher.get(), work.init) != 0 &&
                     EVP_CIPHER_meth_set_do_cipher(cipher.get(), work.doCipher) != 0 &&
                     EVP_CIPHER_meth_set_cleanup(cipher.get(), work.cleanup) != 0 &&
                     EVP_CIPHER_meth_set_impl_ctx_size(cipher.get(), work.contextBytes) != 0 &&
                     EVP_CIPHER_meth_set_set_asn1_params(cipher.get(), EVP_CIPHER_set_asn1_iv) != 0 &&
                     EVP_CIPHER_meth_set_get_asn1_params(cipher.get(), EVP_CIPHER_get_asn1_iv) != 0;
  return whole ? cipher.release() : nullptr;
}

} // namespace

int qv_ciphers(ENGINE *engine, const EVP_CIPHER **cipher, const int **nids, int nid) noexcept {
  if (cipher == nullptr) {
    *nids = kCipherNids.data();
    return static_cast<int>(kCipherNids.size());
  }
  *cipher = nullptr;
  const auto *found = std::find(kCipherNids.begin(), kCipherNids.end(), nid);
  EngineMethods *methods = methodsOf(engine);
  if (found != kCipherNids.end() && methods != nullptr) {
    const auto index = static_cast<std::size_t>(found - kCipherNids.begin());
    *cipher = methods->ciphers.at(index).get([index] { return buildCipher(kCiphers.at(index)); });
  }
  return *cipher != nullptr ? 1 : 0;
}
