// AES key wrap: the steps of RFC 3394 over an AES-ECB context of OpenSSL, whose own wrap call refuses a
// single 64-bit block and is slower.
#include <krOpenSSL/kroAESWrap.h>

#include "BigEndian.h"
#include "CipherContext.h"
#include "Usable.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "state/FipsState.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstring>
#include <limits>
#include <memory>

using namespace krOpenSSL;

namespace {

constexpr std::uint64_t kSemiblockBytes = 8;
constexpr int kBlockBytes = 16;
constexpr std::uint32_t kPasses = 6;

// RFC 3394, 2.2.3.1: the default initial value.
constexpr unsigned char kDefaultIv[kSemiblockBytes]{0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6, 0xA6};

const EVP_CIPHER *aesEcb(std::uint64_t keyLength) noexcept {
  switch (keyLength) {
  case 16:
  case 128:
    return EVP_aes_128_ecb();
  case 24:
  case 192:
    return EVP_aes_192_ecb();
  case 32:
  case 256:
    return EVP_aes_256_ecb();
  default:
    return nullptr;
  }
}

// The module takes bits; lengths up to 32 are bytes.
FipsModule::Length keyBits(std::uint64_t length) noexcept {
  return static_cast<FipsModule::Length>(length <= 32 ? length * 8 : length);
}

// The step counter, at most 6n, has 32 bits.
bool isAllowedLength(std::uint64_t length) noexcept {
  return length >= kSemiblockBytes && length % kSemiblockBytes == 0 &&
         length / kSemiblockBytes <= std::numeric_limits<std::uint32_t>::max() / kPasses;
}

enum Direction { kUnwrap = 0, kWrap = 1 };

bool isKeyedFor(Direction direction, const EVP_CIPHER_CTX *context) noexcept {
  return isKeyed(context) && EVP_CIPHER_CTX_encrypting(context) == direction;
}

/// The registers A and R[1] to R[n] of one wrap or unwrap, wiped at its end.
class Registers {
public:
  /// Throws what the allocator throws, before anything is copied.
  Registers(EVP_CIPHER_CTX *context, const unsigned char *a, const unsigned char *r, std::uint64_t length)
      : context_(context), r_(std::make_unique_for_overwrite<unsigned char[]>(length)), length_(length) {
    std::memcpy(block_, a, kSemiblockBytes);
    std::memcpy(r_.get(), r, length);
  }
  ~Registers() {
    OPENSSL_cleanse(r_.get(), length_);
    OPENSSL_cleanse(block_, sizeof block_);
  }
  Registers(const Registers &) = delete;
  Registers &operator=(const Registers &) = delete;

  const unsigned char *a() const noexcept { return block_; }
  const unsigned char *r() const noexcept { return r_.get(); }

  bool wrap() noexcept {
    std::uint32_t t = 0;
    for (std::uint32_t pass = 0; pass < kPasses; ++pass) {
      for (std::uint64_t at = 0; at < length_; at += kSemiblockBytes) {
        if (!cipherBlock(at)) {
          return false;
        }
        addStep(++t);
      }
    }
    return true;
  }

  bool unwrap() noexcept {
    auto t = static_cast<std::uint32_t>(length_ / kSemiblockBytes * kPasses);
    for (std::uint32_t pass = 0; pass < kPasses; ++pass) {
      for (std::uint64_t at = length_; at > 0; at -= kSemiblockBytes) {
        addStep(t--);
        if (!cipherBlock(at - kSemiblockBytes)) {
          return false;
        }
      }
    }
    return true;
  }

private:
  // A and the semiblock go through the cipher together.
  bool cipherBlock(std::uint64_t at) noexcept {
    std::memcpy(block_ + kSemiblockBytes, r_.get() + at, kSemiblockBytes);
    int written = 0;
    const bool done = EVP_CipherUpdate(context_, block_, &written, block_, kBlockBytes) == 1;
    std::memcpy(r_.get() + at, block_ + kSemiblockBytes, kSemiblockBytes);
    return done;
  }

  void addStep(std::uint32_t t) noexcept {
    unsigned char *low = block_ + kSemiblockBytes - sizeof t;
    storeBigEndian(low, loadBigEndian<std::uint32_t>(low) ^ t);
  }

  EVP_CIPHER_CTX *context_;
  std::unique_ptr<unsigned char[]> r_;
  std::uint64_t length_;
  unsigned char block_[kBlockBytes]; // A, then the semiblock at work
};

} // namespace

// Work on the OpenSSL way, beside the class so that it is not exported with it.
struct kroAESWrap::Context {
  static void make(kroAESWrap &wrap) noexcept {
    wrap.context_ = krEVP_CIPHER_CTX_new();
    if (wrap.context_ == nullptr) {
      krTraceLog(kTraceTag, "Unable to allocate memory for EVP_CIPHER_CTX");
    }
  }

  static void release(kroAESWrap &wrap) noexcept {
    if (!wrap.viaModule_) {
      krEVP_CIPHER_CTX_Cleanup(wrap.context_);
      wrap.context_ = nullptr;
      return;
    }
    if (const FipsModule *module = readyModule()) {
      module->AesFree(wrap.area_);
    }
    OPENSSL_cleanse(wrap.area_, kStateBytes); // a module that is not ready any more cannot do it
  }

  static void setKey(kroAESWrap &wrap, Direction direction, const unsigned char *key, std::uint64_t len) noexcept {
    if (!wrap.viaModule_) {
      setKey(wrap.context_, direction, key, len);
    } else if (const FipsModule *module = readyModule()) {
      wrap.mayWrap_ = key != nullptr && direction == kWrap;
      wrap.mayUnwrap_ = key != nullptr && direction == kUnwrap;
      if (key != nullptr) {
        const auto set = direction == kWrap ? module->AesSetEncryptKey : module->AesSetDecryptKey;
        set(fipsModuleContext, wrap.area_, kStateBytes, key, keyBits(len));
      }
    }
  }

  static void setKey(EVP_CIPHER_CTX *context, Direction direction, const unsigned char *key,
                     std::uint64_t len) noexcept {
    const EVP_CIPHER *cipher = aesEcb(len);
    if (context == nullptr || (cipher == nullptr && !isKeyed(context))) {
      return;
    }
    // What is left half keyed after a failure must not be used.
    if (key == nullptr || !canBegin() || EVP_CipherInit_ex(context, cipher, nullptr, key, nullptr, direction) != 1) {
      EVP_CIPHER_CTX_reset(context);
      return;
    }
    EVP_CIPHER_CTX_set_padding(context, 0);
  }
};

kroAESWrap::kroAESWrap() : viaModule_(worksViaModule()), mayWrap_(true), mayUnwrap_(true) {
  if (viaModule_) {
    OPENSSL_cleanse(area_, kStateBytes);
  } else {
    Context::make(*this);
  }
}

kroAESWrap::kroAESWrap(const kroAESWrap &other)
    : viaModule_(false), mayWrap_(true), mayUnwrap_(true), context_(nullptr) {
  *this = other;
}

kroAESWrap::~kroAESWrap() { Context::release(*this); }

kroAESWrap &kroAESWrap::operator=(const kroAESWrap &other) {
  if (this == &other) {
    return *this;
  }
  mayWrap_ = other.mayWrap_;
  mayUnwrap_ = other.mayUnwrap_;
  if (other.viaModule_) {
    if (!viaModule_ && context_ != nullptr) {
      Context::release(*this);
    }
    viaModule_ = true;
    std::memcpy(area_, other.area_, kStateBytes);
    return *this;
  }
  if (viaModule_) {
    Context::release(*this);
    viaModule_ = false;
    Context::make(*this);
  } else if (context_ == nullptr) {
    Context::make(*this);
  }
  copyOrReset(context_, other.context_);
  return *this;
}

void kroAESWrap::SetEncryptKey(const unsigned char *key, std::uint64_t len) { Context::setKey(*this, kWrap, key, len); }

void kroAESWrap::SetDecryptKey(const unsigned char *key, std::uint64_t len) {
  Context::setKey(*this, kUnwrap, key, len);
}

bool kroAESWrap::Encrypt(unsigned char *out, const unsigned char *in, std::uint64_t len, const unsigned char *iv) {
  if (out == nullptr || in == nullptr) {
    return false;
  }
  if (viaModule_) {
    const FipsModule *module = mayWrap_ ? readyModule() : nullptr;
    return module != nullptr && module->AesKeyWrap(area_, out, in, static_cast<FipsModule::Length>(len), iv) == 0;
  }
  if (!isAllowedLength(len) || !isKeyedFor(kWrap, context_)) {
    return false;
  }
  Registers registers(context_, iv != nullptr ? iv : kDefaultIv, in, len);
  if (!registers.wrap()) {
    return false;
  }
  std::memcpy(out, registers.a(), kSemiblockBytes);
  std::memcpy(out + kSemiblockBytes, registers.r(), len);
  return true;
}

bool kroAESWrap::Decrypt(unsigned char *out, std::uint64_t len, const unsigned char *in, const unsigned char *iv) {
  if (out == nullptr || in == nullptr) {
    return false;
  }
  if (viaModule_) {
    const FipsModule *module = mayUnwrap_ ? readyModule() : nullptr;
    return module != nullptr && module->AesKeyUnwrap(area_, out, static_cast<FipsModule::Length>(len), in, iv) == 0;
  }
  if (!isAllowedLength(len) || !isKeyedFor(kUnwrap, context_)) {
    return false;
  }
  Registers registers(context_, in, in + kSemiblockBytes, len);
  if (!registers.unwrap() || CRYPTO_memcmp(registers.a(), iv != nullptr ? iv : kDefaultIv, kSemiblockBytes) != 0) {
    return false;
  }
  std::memcpy(out, registers.r(), len);
  return true;
}

bool kroAESWrap::Validate() {
  // RFC 3394, 4.1
  static constexpr unsigned char kKek[16]{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  static constexpr unsigned char kKeyData[16]{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                              0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
  static constexpr unsigned char kWrapped[24]{0x1F, 0xA6, 0x8B, 0x0A, 0x81, 0x12, 0xB4, 0x47, 0xAE, 0xF3, 0x4B, 0xD8,
                                              0xFB, 0x5A, 0x7B, 0x82, 0x9D, 0x3E, 0x86, 0x23, 0x71, 0xD2, 0xCF, 0xE5};
  unsigned char wrapped[sizeof kWrapped]{};
  unsigned char keyData[sizeof kKeyData]{};
  kroAESWrap wrap;
  wrap.SetEncryptKey(kKek, sizeof kKek);
  if (!wrap.Encrypt(wrapped, kKeyData, sizeof kKeyData, nullptr) ||
      std::memcmp(wrapped, kWrapped, sizeof kWrapped) != 0) {
    return false;
  }
  wrap.SetDecryptKey(kKek, sizeof kKek);
  return wrap.Decrypt(keyData, sizeof keyData, kWrapped, nullptr) &&
         std::memcmp(keyData, kKeyData, sizeof kKeyData) == 0;
}

void kroAESWrap::__autoclassinit2(std::uint64_t n) { std::memset(static_cast<void *>(this), 0, n); }
