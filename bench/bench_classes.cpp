// The crypto classes against the raw OpenSSL calls they stand for, over sizes.
#include "Bench.h"

#include <krOpenSSL/krCrypto.hpp>
#include <krOpenSSL/krHandles.h>

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <memory>

namespace {

using namespace krOpenSSL;
using bench::input;
using bench::output;
using CipherCtxPtr = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using HMACCtxPtr = Handle<HMAC_CTX, HMAC_CTX_free>;

constexpr std::array<std::size_t, 6> kSizes{16, 64, 256, 1024, 4096, 16384};
constexpr std::array<unsigned char, 32> kKey{1, 2, 3};
constexpr int kKeyBytes = static_cast<int>(kKey.size());
constexpr int kRc4KeyBytes = 16;
constexpr std::size_t kWrapOverhead = 8;

std::string named(const char *topic, const char *subject, const char *contestant) {
  return std::string(topic) + "/" + subject + "/" + contestant;
}

template <class Hash> void addDigest(const char *name) {
  bench::addSizes(named("digest", name, "raw"), kSizes, [](std::size_t size) {
    return [size] { return EVP_Digest(input.data(), size, output.data(), nullptr, Hash::GetEVP_MD(), nullptr) == 1; };
  });
  bench::addSizes(named("digest", name, "class"), kSizes, [](std::size_t size) {
    return [size, hash = Hash()]() mutable {
      hash(output.data(), input.data(), size);
      return true;
    };
  });
}

// The next message under the key that is set.
template <class Hash> void addHmac(const char *name) {
  bench::addSizes(named("hmac", name, "raw"), kSizes, [](std::size_t size) {
    HMACCtxPtr context(HMAC_CTX_new());
    HMAC_Init_ex(context.get(), kKey.data(), kKeyBytes, Hash::GetEVP_MD(), nullptr);
    return [size, context = std::move(context)] {
      return HMAC_Init_ex(context.get(), nullptr, 0, Hash::GetEVP_MD(), nullptr) == 1 &&
             HMAC_Update(context.get(), input.data(), size) == 1 &&
             HMAC_Final(context.get(), output.data(), nullptr) == 1;
    };
  });
  bench::addSizes(named("hmac", name, "class"), kSizes, [](std::size_t size) {
    auto hmac = std::make_unique<kroHMAC<Hash>>();
    hmac->SetKey(kKey.data(), kKey.size());
    return [size, hmac = std::move(hmac)] {
      hmac->Init();
      hmac->Update(input.data(), size);
      hmac->Final(output.data());
      return true;
    };
  });
}

// krCrypto.hpp over what it uses: an object for each message.
void addLayer() {
  const auto text = [](std::size_t size) { return std::span(input).first(size); };
  bench::addSizes("layer/digest<kroSHA256>/class", kSizes, [](std::size_t size) {
    return [size] {
      kroSHA256 hash;
      hash.Init();
      hash.Update(input.data(), size);
      hash.Final(output.data());
      return true;
    };
  });
  bench::addSizes("layer/digest<kroSHA256>/layer", kSizes, [text](std::size_t size) {
    return [size, text] {
      benchmark::DoNotOptimize(krOpenSSL::digest<kroSHA256>(text(size)));
      return true;
    };
  });
  bench::addSizes("layer/mac<kroSHA256>/class", kSizes, [](std::size_t size) {
    return [size] {
      kroHMAC<kroSHA256> hmac;
      hmac.Init();
      hmac.SetKey(kKey.data(), kKey.size());
      hmac.Update(input.data(), size);
      hmac.Final(output.data());
      return true;
    };
  });
  bench::addSizes("layer/mac<kroSHA256>/layer", kSizes, [text](std::size_t size) {
    return [size, text] {
      benchmark::DoNotOptimize(krOpenSSL::mac<kroSHA256>(kKey, text(size)));
      return true;
    };
  });
}

// A new object for each message, whose accessors write four trace lines.
void addHmacObject() {
  bench::addSizes("hmac/new kroHMAC<kroSHA256>/raw", kSizes, [](std::size_t size) {
    return [size] {
      return HMAC(EVP_sha256(), kKey.data(), kKeyBytes, input.data(), size, output.data(), nullptr) != nullptr;
    };
  });
  bench::addSizes("hmac/new kroHMAC<kroSHA256>/class", kSizes, [](std::size_t size) {
    return [size] {
      kroHMAC<kroSHA256> hmac;
      hmac(kKey.data(), kKey.size(), input.data(), size, output.data());
      return true;
    };
  });
}

using Transform = void (*)(unsigned char *, const unsigned char *, const unsigned char *, const unsigned char *,
                           std::uint64_t);

void addCbc(const char *name, const EVP_CIPHER *cipher, int encrypt, Transform transform) {
  bench::addSizes(named("cipher", name, "raw"), kSizes, [=](std::size_t size) {
    return [=] {
      const CipherCtxPtr context(EVP_CIPHER_CTX_new());
      int written = 0;
      return EVP_CipherInit_ex(context.get(), cipher, nullptr, kKey.data(), kKey.data(), encrypt) == 1 &&
             EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1 &&
             EVP_CipherUpdate(context.get(), output.data(), &written, input.data(), static_cast<int>(size)) == 1;
    };
  });
  bench::addSizes(named("cipher", name, "class"), kSizes, [=](std::size_t size) {
    return [=] {
      transform(output.data(), kKey.data(), kKey.data(), input.data(), size);
      return true;
    };
  });
}

void addRc4() {
  bench::addSizes("cipher/kroRC4/raw", kSizes, [](std::size_t size) {
    CipherCtxPtr context(EVP_CIPHER_CTX_new());
    EVP_CipherInit_ex(context.get(), EVP_rc4(), nullptr, kKey.data(), nullptr, 1);
    return [size, context = std::move(context)] {
      int written = 0;
      return EVP_CipherUpdate(context.get(), output.data(), &written, input.data(), static_cast<int>(size)) == 1;
    };
  });
  bench::addSizes("cipher/kroRC4/class", kSizes, [](std::size_t size) {
    return [size, stream = std::make_unique<kroRC4>(kKey.data(), kRc4KeyBytes)] {
      stream->Transform(output.data(), input.data(), size);
      return true;
    };
  });
}

CipherCtxPtr wrapContext(int encrypt) {
  CipherCtxPtr context(EVP_CIPHER_CTX_new());
  EVP_CIPHER_CTX_set_flags(context.get(), EVP_CIPHER_CTX_FLAG_WRAP_ALLOW);
  EVP_CipherInit_ex(context.get(), EVP_aes_256_wrap(), nullptr, kKey.data(), nullptr, encrypt);
  return context;
}

std::unique_ptr<kroAESWrap> wrapper() {
  auto wrap = std::make_unique<kroAESWrap>();
  wrap->SetEncryptKey(kKey.data(), kKey.size());
  return wrap;
}

void addWrap() {
  bench::addSizes("wrap/kroAESWrap::Encrypt/raw", kSizes, [](std::size_t size) {
    return [size, context = wrapContext(1)] {
      int written = 0;
      return EVP_CipherUpdate(context.get(), output.data(), &written, input.data(), static_cast<int>(size)) == 1;
    };
  });
  bench::addSizes("wrap/kroAESWrap::Encrypt/class", kSizes, [](std::size_t size) {
    return [size, wrap = wrapper()] { return wrap->Encrypt(output.data(), input.data(), size, nullptr); };
  });
}

// The sizes are those of the key data that come out.
void addUnwrap() {
  const auto wrapped = [](std::size_t size) {
    auto bytes = std::make_unique<std::array<unsigned char, kSizes.back() + kWrapOverhead>>();
    benchmark::DoNotOptimize(wrapper()->Encrypt(bytes->data(), input.data(), size, nullptr));
    return bytes;
  };
  bench::addSizes("wrap/kroAESWrap::Decrypt/raw", kSizes, [wrapped](std::size_t size) {
    return [size, in = wrapped(size), context = wrapContext(0)] {
      int written = 0;
      return EVP_CipherUpdate(context.get(), output.data(), &written, in->data(),
                              static_cast<int>(size + kWrapOverhead)) == 1;
    };
  });
  bench::addSizes("wrap/kroAESWrap::Decrypt/class", kSizes, [wrapped](std::size_t size) {
    auto unwrap = std::make_unique<kroAESWrap>();
    unwrap->SetDecryptKey(kKey.data(), kKey.size());
    return [size, in = wrapped(size), unwrap = std::move(unwrap)] {
      return unwrap->Decrypt(output.data(), size, in->data(), nullptr);
    };
  });
}

void registerAll() {
  addDigest<kroMD4>("kroMD4");
  addDigest<kroMD5>("kroMD5");
  addDigest<kroSHA1>("kroSHA1");
  addDigest<kroSHA224>("kroSHA224");
  addDigest<kroSHA256>("kroSHA256");
  addDigest<kroSHA384>("kroSHA384");
  addDigest<kroSHA512>("kroSHA512");
  addHmac<kroMD4>("kroHMAC<kroMD4>");
  addHmac<kroMD5>("kroHMAC<kroMD5>");
  addHmac<kroSHA1>("kroHMAC<kroSHA1>");
  addHmac<kroSHA224>("kroHMAC<kroSHA224>");
  addHmac<kroSHA256>("kroHMAC<kroSHA256>");
  addHmac<kroSHA384>("kroHMAC<kroSHA384>");
  addHmac<kroSHA512>("kroHMAC<kroSHA512>");
  addHmacObject();
  addLayer();
  addCbc("kroAESCipher<128>::Encrypt", EVP_aes_128_cbc(), 1, kroAESCipher<128>::Encrypt);
  addCbc("kroAESCipher<128>::Decrypt", EVP_aes_128_cbc(), 0, kroAESCipher<128>::Decrypt);
  addCbc("kroAESCipher<192>::Encrypt", EVP_aes_192_cbc(), 1, kroAESCipher<192>::Encrypt);
  addCbc("kroAESCipher<192>::Decrypt", EVP_aes_192_cbc(), 0, kroAESCipher<192>::Decrypt);
  addCbc("kroAESCipher<256>::Encrypt", EVP_aes_256_cbc(), 1, kroAESCipher<256>::Encrypt);
  addCbc("kroAESCipher<256>::Decrypt", EVP_aes_256_cbc(), 0, kroAESCipher<256>::Decrypt);
  addCbc("kroDES3CBCCipher::Encrypt", EVP_des_ede3_cbc(), 1, kroDES3CBCCipher::Encrypt);
  addCbc("kroDES3CBCCipher::Decrypt", EVP_des_ede3_cbc(), 0, kroDES3CBCCipher::Decrypt);
  addRc4();
  addWrap();
  addUnwrap();
}

} // namespace

int main(int argc, char **argv) { return bench::run(argc, argv, registerAll); }
