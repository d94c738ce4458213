// RSA's cipher: deciphering at the holder, enciphering here, with the public key.
#include "Algorithms.h"
#include "Key.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <optional>

namespace krProvider {

namespace {

struct Cipher {
  explicit Cipher(const Provider &owner) : provider(owner) {}

  const Provider &provider;
  Share key;
  std::optional<Shadow> shadow;
};

// How the program wants it deciphered, as the shadow understood the program.
struct Wishes {
  explicit Wishes(const Shadow &shadow) {
    OSSL_PARAM params[] = {OSSL_PARAM_construct_int(OSSL_ASYM_CIPHER_PARAM_PAD_MODE, &padding),
                           OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_OAEP_DIGEST, digest, sizeof digest),
                           OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_MGF1_DIGEST, mask, sizeof mask),
                           OSSL_PARAM_construct_octet_ptr(OSSL_ASYM_CIPHER_PARAM_OAEP_LABEL, &label, 0),
                           OSSL_PARAM_construct_uint(OSSL_ASYM_CIPHER_PARAM_TLS_CLIENT_VERSION, &clientVersion),
                           OSSL_PARAM_construct_uint(OSSL_ASYM_CIPHER_PARAM_TLS_NEGOTIATED_VERSION, &otherVersion),
                           OSSL_PARAM_construct_end()};
    if (shadow.get(params) == 0) {
      throw Raised();
    }
    labelBytes = OSSL_PARAM_modified(&params[3]) == 1 ? params[3].return_size : 0;
  }

  int padding = RSA_PKCS1_PADDING;
  char digest[64] = "";
  char mask[64] = "";
  void *label = nullptr;
  std::size_t labelBytes = 0;
  unsigned clientVersion = 0;
  unsigned otherVersion = 0;
};

void describeOaep(krHolder::Decrypt &decrypt, const Cipher &cipher, const Wishes &wishes) {
  const char *digest = *wishes.digest != '\0' ? wishes.digest : "SHA1"; // RFC 8017, A.2.1: the default
  const char *mask = *wishes.mask != '\0' ? wishes.mask : digest;
  decrypt.padding = krHolder::Padding::oaep;
  decrypt.digest = digestNamed(cipher.provider.library(), digest, nullptr).code;
  decrypt.maskDigest = digestNamed(cipher.provider.library(), mask, nullptr).code;
  const krHolder::View label(static_cast<const unsigned char *>(wishes.label), wishes.labelBytes);
  if (label.size() > krHolder::kMaxMessageBytes) {
    throw Failure(Reason::unsupportedPadding, "the label is too long");
  }
  decrypt.label.assign(label.begin(), label.end());
}

void describeTls(krHolder::Decrypt &decrypt, const Wishes &wishes) {
  if (wishes.clientVersion == 0) {
    throw Failure(Reason::unsupportedPadding, "the client's version of TLS is not set");
  }
  decrypt.padding = krHolder::Padding::tls;
  decrypt.clientVersion = static_cast<std::uint16_t>(wishes.clientVersion);
  decrypt.otherVersion = static_cast<std::uint16_t>(wishes.otherVersion);
}

krHolder::Decrypt request(const Cipher &cipher, const Wishes &wishes) {
  krHolder::Decrypt decrypt;
  if (wishes.padding == RSA_PKCS1_OAEP_PADDING) {
    describeOaep(decrypt, cipher, wishes);
  } else if (wishes.padding == RSA_PKCS1_WITH_TLS_PADDING) {
    describeTls(decrypt, wishes);
  } else if (wishes.padding != RSA_PKCS1_PADDING) {
    throw Failure(Reason::unsupportedPadding);
  }
  return decrypt;
}

krHolder::Bytes decipher(const Cipher &cipher, const Wishes &wishes, krHolder::View in, std::size_t room) {
  if (in.size() > cipher.key->maxBytes()) {
    throw Failure(Reason::badRequest, "the cipher is longer than the key");
  }
  krHolder::Decrypt decrypt = request(cipher, wishes);
  decrypt.data.assign(in.begin(), in.end());
  const bool tls = decrypt.padding == krHolder::Padding::tls;
  krHolder::Bytes text = cipher.key->ask(krHolder::Operation::decrypt, std::move(decrypt), room);
  if (tls && text.size() != krHolder::kPremasterBytes) {
    throw Failure(Reason::answer);
  }
  return text;
}

Cipher &cipherOf(void *context) noexcept { return *static_cast<Cipher *>(context); }

void *newContext(void *provider) noexcept {
  const auto &owner = *static_cast<const Provider *>(provider);
  return guarded(owner, [&] { return std::make_unique<Cipher>(owner).release(); });
}

void freeContext(void *context) noexcept { delete static_cast<Cipher *>(context); }

void *duplicate(void *context) noexcept {
  const Cipher &original = cipherOf(context);
  return guarded(original.provider, [&] { return std::make_unique<Cipher>(original).release(); });
}

template <Shadow::Start *how> int start(void *context, void *keyData, const OSSL_PARAM params[]) noexcept {
  Cipher &cipher = cipherOf(context);
  return guarded(cipher.provider, [&] {
    cipher.shadow.reset();
    cipher.key = shareOf(keyData);
    cipher.shadow = cipher.key->begin(how, nullptr, nullptr, params);
    return 1;
  });
}

int encrypt(void *context, unsigned char *out, std::size_t *length, std::size_t room, const unsigned char *in,
            std::size_t inLength) noexcept {
  const auto &shadow = cipherOf(context).shadow;
  *length = room;
  return shadow && EVP_PKEY_encrypt(shadow->get(), out, length, in, inLength) == 1;
}

// Without out only the length is asked for.
int decrypt(void *context, unsigned char *out, std::size_t *length, std::size_t room, const unsigned char *in,
            std::size_t inLength) noexcept {
  const Cipher &cipher = cipherOf(context);
  return guarded(cipher.provider, [&] {
    const Wishes wishes(begun(cipher.shadow));
    if (out == nullptr) {
      *length = wishes.padding == RSA_PKCS1_WITH_TLS_PADDING ? krHolder::kPremasterBytes : cipher.key->maxBytes();
      return 1;
    }
    const krHolder::Bytes text = decipher(cipher, wishes, {in, inLength}, room);
    std::ranges::copy(text, out);
    *length = text.size();
    return 1;
  });
}

int setParams(void *context, const OSSL_PARAM params[]) noexcept {
  Cipher &cipher = cipherOf(context);
  return cipher.shadow ? cipher.shadow->set(params) : 0;
}

int getParams(void *context, OSSL_PARAM params[]) noexcept {
  const Cipher &cipher = cipherOf(context);
  return cipher.shadow ? cipher.shadow->get(params) : 0;
}

const OSSL_PARAM *settable(void *context, void * /*provider*/) noexcept {
  const bool started = context != nullptr && cipherOf(context).shadow;
  return started ? EVP_PKEY_CTX_settable_params(cipherOf(context).shadow->get()) : nullptr;
}

const OSSL_PARAM *gettable(void *context, void * /*provider*/) noexcept {
  const bool started = context != nullptr && cipherOf(context).shadow;
  return started ? EVP_PKEY_CTX_gettable_params(cipherOf(context).shadow->get()) : nullptr;
}

} // namespace

const OSSL_DISPATCH *cipher() noexcept {
  static const OSSL_DISPATCH rows[] = {
      row<OSSL_FUNC_asym_cipher_newctx_fn>(OSSL_FUNC_ASYM_CIPHER_NEWCTX, newContext),
      row<OSSL_FUNC_asym_cipher_freectx_fn>(OSSL_FUNC_ASYM_CIPHER_FREECTX, freeContext),
      row<OSSL_FUNC_asym_cipher_dupctx_fn>(OSSL_FUNC_ASYM_CIPHER_DUPCTX, duplicate),
      row<OSSL_FUNC_asym_cipher_encrypt_init_fn>(OSSL_FUNC_ASYM_CIPHER_ENCRYPT_INIT, start<EVP_PKEY_encrypt_init_ex>),
      row<OSSL_FUNC_asym_cipher_encrypt_fn>(OSSL_FUNC_ASYM_CIPHER_ENCRYPT, encrypt),
      row<OSSL_FUNC_asym_cipher_decrypt_init_fn>(OSSL_FUNC_ASYM_CIPHER_DECRYPT_INIT, start<EVP_PKEY_decrypt_init_ex>),
      row<OSSL_FUNC_asym_cipher_decrypt_fn>(OSSL_FUNC_ASYM_CIPHER_DECRYPT, decrypt),
      row<OSSL_FUNC_asym_cipher_set_ctx_params_fn>(OSSL_FUNC_ASYM_CIPHER_SET_CTX_PARAMS, setParams),
      row<OSSL_FUNC_asym_cipher_settable_ctx_params_fn>(OSSL_FUNC_ASYM_CIPHER_SETTABLE_CTX_PARAMS, settable),
      row<OSSL_FUNC_asym_cipher_get_ctx_params_fn>(OSSL_FUNC_ASYM_CIPHER_GET_CTX_PARAMS, getParams),
      row<OSSL_FUNC_asym_cipher_gettable_ctx_params_fn>(OSSL_FUNC_ASYM_CIPHER_GETTABLE_CTX_PARAMS, gettable),
      {},
  };
  return rows;
}

} // namespace krProvider
