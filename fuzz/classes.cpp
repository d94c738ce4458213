// The crypto classes beside OpenSSL's one-shot calls and the standards: any sequence of calls on two objects of a class
// that are copied from one another, with any lengths, nulls and overlaps.
#include "Fips186_2.h"

#include <krOpenSSL/kroAESWrap.h>
#include <krOpenSSL/kroCiphers.h>
#include <krOpenSSL/kroFipsRngSha1.h>
#include <krOpenSSL/kroHMAC.h>

#include <openssl/aes.h>
#include <openssl/hmac.h>
#include <openssl/rc4.h>

#include <optional>

namespace {

using namespace krFuzz;

constexpr std::size_t kMost = 150;
constexpr std::uint64_t kTooLong = std::uint64_t{1} << 31U; // for an int

/// An argument of a call: bytes, or null, and a length that may be another.
struct Text {
  Bytes bytes;
  const unsigned char *data;
  std::uint64_t length;

  bool isReadable() const { return data != nullptr || length == 0; }
  bool isShort() const { return length < kTooLong; }
};

Text takeText(Input &input, bool mayBeTooLong = true) {
  Text text{takeBytes(input, kMost), nullptr, 0};
  const int kind = input.ConsumeIntegralInRange(0, 15);
  text.data = kind == 1 || text.bytes.empty() ? nullptr : text.bytes.data();
  text.length = kind == 2 && mayBeTooLong ? kTooLong + text.bytes.size() : text.bytes.size();
  return text;
}

// Each class beside what it has to do. A step is a call on both.

/// A digest, or with a key its HMAC.
template <class Hash, bool kKeyed> struct DigestTwin {
  std::conditional_t<kKeyed, kroHMAC<Hash>, Hash> object;
  std::optional<Bytes> key = kKeyed ? std::nullopt : std::optional(Bytes());
  std::optional<Bytes> message; // none outside a computation

  void step(Input &input) {
    const Text text = takeText(input, kKeyed);
    const int call = input.ConsumeIntegralInRange(0, 4);
    if (call == 0) {
      object.Init();
      begin();
    } else if (call == 1) {
      object.Update(text.data, text.length);
      add(text);
    } else if (call == 2) {
      finish([&](unsigned char *out) { object.Final(out); });
    } else if constexpr (!kKeyed) {
      begin();
      add(text);
      finish([&](unsigned char *out) { object(out, text.data, text.length); });
    } else if (call == 3) {
      object.SetKey(text.data, text.length);
      setKey(text);
    } else {
      const Text secret = takeText(input);
      setKey(secret);
      add(text);
      finish([&](unsigned char *out) { object(secret.data, secret.length, text.data, text.length, out); });
    }
  }

  void begin() { message = key ? std::optional(Bytes()) : std::nullopt; }

  void setKey(const Text &text) {
    key = text.isReadable() && text.isShort() ? std::optional(text.bytes) : std::nullopt;
    begin();
  }

  void add(const Text &text) {
    if (!text.isReadable() || !text.isShort()) {
      message.reset();
    } else if (message) {
      message->insert(message->end(), text.bytes.begin(), text.bytes.end());
    }
  }

  template <class Final> void finish(Final final) {
    const Bytes untouched(EVP_MAX_MD_SIZE + 1, kUntouched);
    Bytes out = untouched;
    Bytes expected = untouched;
    if (message && kKeyed) {
      HMAC(Hash::GetEVP_MD(), key->empty() ? expected.data() : key->data(), static_cast<int>(key->size()),
           message->data(), message->size(), expected.data(), nullptr);
    } else if (message) {
      EVP_Digest(message->data(), message->size(), expected.data(), nullptr, Hash::GetEVP_MD(), nullptr);
    }
    message.reset();
    final(out.data());
    require(out == expected, "a digest or MAC is OpenSSL's, and of all or of none");
  }
};

struct Rc4Twin {
  kroRC4 stream;
  std::optional<RC4_KEY> state;

  void step(Input &input) {
    const Text text = takeText(input);
    const bool isUsable = text.data != nullptr && text.isShort();
    if (input.ConsumeBool()) {
      stream.SetKey(text.data, text.length);
      state.reset();
      if (isUsable) {
        RC4_set_key(&state.emplace(), static_cast<int>(text.length), text.data);
      }
      return;
    }
    const bool isInPlace = input.ConsumeBool();
    Bytes out = isInPlace ? text.bytes : Bytes(text.bytes.size(), kUntouched);
    Bytes expected = out;
    if (state && isUsable) {
      RC4(&*state, text.bytes.size(), text.data, expected.data());
    }
    stream.Transform(out.data(), isInPlace && text.data != nullptr ? out.data() : text.data, text.length);
    require(out == expected, "the key stream goes on");
  }
};

struct CbcTwin {
  void step(Input &input) {
    using Transform =
        void (*)(unsigned char *, const unsigned char *, const unsigned char *, const unsigned char *, std::uint64_t);
    constexpr struct {
      int cipher;
      Transform ways[2];
    } kRows[]{{NID_des_ede3_cbc, {kroDES3CBCCipher::Decrypt, kroDES3CBCCipher::Encrypt}},
              {NID_aes_128_cbc, {kroAESCipher<128>::Decrypt, kroAESCipher<128>::Encrypt}},
              {NID_aes_192_cbc, {kroAESCipher<192>::Decrypt, kroAESCipher<192>::Encrypt}},
              {NID_aes_256_cbc, {kroAESCipher<256>::Decrypt, kroAESCipher<256>::Encrypt}}};
    const auto &row = kRows[input.ConsumeIntegralInRange(0, 3)];
    const EVP_CIPHER *cipher = EVP_get_cipherbynid(row.cipher);
    const int way = input.ConsumeIntegralInRange(0, 1);
    const Bytes key = takeExactly(input, static_cast<std::size_t>(EVP_CIPHER_key_length(cipher)));
    const Bytes iv = takeExactly(input, static_cast<std::size_t>(EVP_CIPHER_block_size(cipher)));
    const Text text = takeText(input);
    const int absent = input.ConsumeIntegralInRange(0, 15);
    Bytes out(text.bytes.size(), kUntouched);
    Bytes expected = out;
    if (text.data != nullptr && text.isShort() && absent != 1 && absent != 2) {
      const krOpenSSL::Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> context(EVP_CIPHER_CTX_new());
      EVP_CipherInit_ex(context.get(), cipher, nullptr, key.data(), iv.data(), way);
      EVP_CIPHER_CTX_set_padding(context.get(), 0);
      int written = 0;
      EVP_CipherUpdate(context.get(), expected.data(), &written, text.data, static_cast<int>(text.length));
    }
    row.ways[way](out.data(), absent == 1 ? nullptr : iv.data(), absent == 2 ? nullptr : key.data(), text.data,
                  text.length);
    require(out == expected, "whole blocks are OpenSSL's");
  }
};

struct WrapTwin {
  static constexpr std::size_t kSemiblock = 8;

  kroAESWrap object;
  Bytes key; // none: empty
  bool wraps = false;

  void step(Input &input) {
    if (input.ConsumeIntegralInRange(0, 2) == 0) {
      setKey(input);
      return;
    }
    const bool encrypts = input.ConsumeBool();
    const Bytes iv = takeExactly(input, kSemiblock, 0xA6); // with what is the default
    const unsigned char *given = input.ConsumeBool() ? nullptr : iv.data();
    const auto flip = input.ConsumeIntegral<std::uint16_t>();
    const Bytes text = takeBytes(input, kMost);
    const bool isKeyed = !key.empty() && text.size() >= kSemiblock && text.size() % kSemiblock == 0;
    Bytes wrapped = isKeyed ? wrap(given, text) : Bytes(text.size() + kSemiblock);
    if (encrypts) {
      inOneBlock(input, text, wrapped, isKeyed && wraps,
                 [&](auto *out, auto *in) { return object.Encrypt(out, in, text.size(), given); });
      return;
    }
    wrapped[flip / 8U % wrapped.size()] ^= static_cast<unsigned char>(flip != 0 ? 1U << flip % 8U : 0);
    inOneBlock(input, wrapped, text, isKeyed && !wraps && flip == 0,
               [&](auto *out, auto *in) { return object.Decrypt(out, text.size(), in, given); });
  }

  // Lengths that are none re-key the cipher that is set.
  void setKey(Input &input) {
    Bytes bytes = takeExactly(input, 32);
    const auto length = input.PickValueInArray<std::uint64_t>({16, 24, 32, 128, 192, 256, 0, 17, 1024});
    const bool encrypts = input.ConsumeBool();
    const bool isNull = oneIn(input, 16);
    (object.*(encrypts ? &kroAESWrap::SetEncryptKey : &kroAESWrap::SetDecryptKey))(isNull ? nullptr : bytes.data(),
                                                                                   length);
    const bool isLength = length % 8 == 0 && length >= 16 && length <= 256;
    const std::size_t size = isLength ? (length <= 32 ? length : length / 8) : key.size();
    bytes.resize(isNull ? 0 : size);
    wraps = size != 0 ? encrypts : wraps;
    key = std::move(bytes);
  }

  /// RFC 3394, 2.2.1.
  Bytes wrap(const unsigned char *iv, const Bytes &text) const {
    AES_KEY schedule;
    AES_set_encrypt_key(key.data(), static_cast<int>(key.size() * 8), &schedule);
    Bytes block(AES_BLOCK_SIZE, 0xA6);
    std::copy_n(iv != nullptr ? iv : block.data(), kSemiblock, block.begin());
    Bytes wrapped(kSemiblock);
    wrapped.insert(wrapped.end(), text.begin(), text.end());
    unsigned step = 0;
    for (int pass = 0; pass < 6; ++pass) {
      for (auto r = wrapped.begin() + kSemiblock; r != wrapped.end(); r += kSemiblock) {
        std::copy_n(r, kSemiblock, block.begin() + kSemiblock);
        AES_encrypt(block.data(), block.data(), &schedule);
        block[7] ^= static_cast<unsigned char>(++step); // below 2^8
        std::copy_n(block.begin() + kSemiblock, kSemiblock, r);
      }
    }
    std::copy_n(block.begin(), kSemiblock, wrapped.begin());
    return wrapped;
  }

  /// Runs a call whose input and output may overlap.
  template <class Call>
  static void inOneBlock(Input &input, const Bytes &in, const Bytes &result, bool isDone, Call call) {
    const auto inAt = input.ConsumeIntegralInRange<std::uint8_t>(0, 64);
    const auto outAt = input.ConsumeIntegralInRange<std::uint8_t>(0, 64);
    Bytes block(std::max(inAt + in.size(), outAt + result.size()), kUntouched);
    std::copy(in.begin(), in.end(), block.begin() + inAt);
    Bytes expected = block;
    if (isDone) {
      std::copy(result.begin(), result.end(), expected.begin() + outAt);
    }
    require(call(block.data() + outAt, block.data() + inAt) == isDone,
            "what is whole and keyed for it is wrapped and unwrapped");
    require(block == expected, "what is refused leaves everything untouched; else the output alone is written");
  }
};

struct GeneratorTwin {
  kroFipsRngSha1 generator;
  Fips186_2 standard;

  void step(Input &input) {
    const int call = input.ConsumeIntegralInRange(0, 4);
    const Bytes bytes = takeBytes(input, kMost);
    const unsigned char *data = bytes.empty() ? nullptr : bytes.data();
    if (call == 0) {
      Bytes q = input.ConsumeBool() ? takeExactly(input, Fips186_2::kBlockBytes, 1) : Bytes{};
      if (!q.empty()) {
        q[0] |= input.PickValueInArray<unsigned char>({0x80, 0xff, 0});
        q.back() |= 1U;
      }
      generator.Init(data, bytes.size(), q.empty() ? nullptr : q.data());
      standard.init(bytes, q);
    } else if (call == 1) {
      generator.Iterate(data, bytes.size());
      standard.iterate(bytes);
    } else {
      Bytes out(takeLength(input, kMost));
      generator.Generate(out.empty() ? nullptr : out.data(), out.size(), data, bytes.size());
      require(out == standard.generate(out.size(), bytes), "the bytes are the standard's");
    }
  }
};

template <class Hash, bool kKeyed> constexpr auto playDigest = playTwins<DigestTwin<Hash, kKeyed>>;

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  input.PickValueInArray<void (*)(Input &)>(
      {playDigest<kroMD4, false>, playDigest<kroMD5, false>, playDigest<kroSHA1, false>, playDigest<kroSHA224, false>,
       playDigest<kroSHA256, false>, playDigest<kroSHA384, false>, playDigest<kroSHA512, false>,
       playDigest<kroMD4, true>, playDigest<kroSHA1, true>, playDigest<kroSHA256, true>, playDigest<kroSHA512, true>,
       playTwins<Rc4Twin>, playTwins<CbcTwin>, playTwins<WrapTwin>, playTwins<GeneratorTwin>})(input);
  return 0;
}
