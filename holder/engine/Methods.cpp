// OpenSSL's own methods, with signing and decryption at the holder. What the wire has no name for goes the way of all
// keys, which ends at the library's delegation.
#include "Methods.h"

#include "Errors.h"
#include "Load.h"

#include <algorithm>
#include <optional>

namespace krEngine {

using namespace krHolder;

namespace {

using SignFunction = int (*)(EVP_PKEY_CTX *, unsigned char *, std::size_t *, const unsigned char *, std::size_t);
using Sized = std::span<unsigned char>;

const EVP_PKEY_METHOD *opensslMethod(int type) { return EVP_PKEY_meth_find(type); }

SignFunction signOfOpenssl(int type) {
  int (*init)(EVP_PKEY_CTX *) = nullptr;
  SignFunction sign = nullptr;
  EVP_PKEY_meth_get_sign(opensslMethod(type), &init, &sign);
  return sign;
}

SignFunction decryptOfOpenssl() {
  int (*init)(EVP_PKEY_CTX *) = nullptr;
  SignFunction decrypt = nullptr;
  EVP_PKEY_meth_get_decrypt(opensslMethod(EVP_PKEY_RSA), &init, &decrypt);
  return decrypt;
}

void give(const Bytes &result, unsigned char *out, std::size_t *length) {
  if (result.size() > *length) {
    throw Failure(Reason::smallBuffer);
  }
  std::ranges::copy(result, out);
  *length = result.size();
}

// RFC 8017, 9.1.1: the most that fits is the block without hash and two bytes.
int saltBytes(EVP_PKEY_CTX *context, const EVP_MD *digest) {
  int asked = 0;
  if (EVP_PKEY_CTX_get_rsa_pss_saltlen(context, &asked) != 1) {
    throw Failure(Reason::unsupportedPadding);
  }
  const int block = (EVP_PKEY_bits(EVP_PKEY_CTX_get0_pkey(context)) + 6) / 8;
  const int most = block - EVP_MD_size(digest) - 2;
  const int salt = asked == RSA_PSS_SALTLEN_DIGEST ? EVP_MD_size(digest) : asked < 0 ? most : asked;
  if (salt < 0 || salt > most) {
    throw Failure(Reason::unsupportedPadding, "the key is too short for the digest and the salt");
  }
  return salt;
}

// The request without its data; none for what the wire has no name for.
std::optional<Sign> signFor(EVP_PKEY_CTX *context) {
  const EVP_MD *digest = nullptr;
  if (EVP_PKEY_CTX_get_signature_md(context, &digest) != 1 || digest == nullptr) {
    return std::nullopt;
  }
  Sign what{Scheme::ecdsa, digestOf(EVP_MD_type(digest)), Digest::none, 0, Form::digest, {}};
  if (EVP_PKEY_base_id(EVP_PKEY_CTX_get0_pkey(context)) == EVP_PKEY_EC) {
    return what;
  }
  int padding = 0;
  if (EVP_PKEY_CTX_get_rsa_padding(context, &padding) != 1) {
    return std::nullopt;
  }
  if (padding == RSA_PKCS1_PADDING) {
    what.scheme = Scheme::pkcs1;
    return what;
  }
  const EVP_MD *mask = nullptr;
  if (padding != RSA_PKCS1_PSS_PADDING || EVP_PKEY_CTX_get_rsa_mgf1_md(context, &mask) != 1) {
    return std::nullopt;
  }
  what.scheme = Scheme::pss;
  what.maskDigest = digestOf(EVP_MD_type(mask));
  what.saltBytes = static_cast<std::uint16_t>(saltBytes(context, digest));
  return what;
}

int sign(EVP_PKEY_CTX *context, unsigned char *out, std::size_t *length, const unsigned char *digest,
         std::size_t digestBytes) noexcept {
  return guarded(-1, [&] {
    EVP_PKEY *const key = EVP_PKEY_CTX_get0_pkey(context);
    const RemoteKey *const remote = remoteOf(key);
    auto what = remote != nullptr && out != nullptr ? signFor(context) : std::nullopt;
    if (!what) {
      return signOfOpenssl(EVP_PKEY_base_id(key))(context, out, length, digest, digestBytes);
    }
    what->data.assign(digest, digest + digestBytes);
    give(remote->sign(std::move(*what)), out, length);
    return 1;
  });
}

int signMessage(EVP_MD_CTX *context, unsigned char *out, std::size_t *length, const unsigned char *message,
                std::size_t messageBytes) noexcept {
  return guarded(-1, [&] {
    EVP_PKEY_CTX *const keyContext = EVP_MD_CTX_pkey_ctx(context);
    EVP_PKEY *const key = EVP_PKEY_CTX_get0_pkey(keyContext);
    if (out == nullptr) {
      *length = static_cast<std::size_t>(EVP_PKEY_size(key));
      return 1;
    }
    const RemoteKey *const remote = remoteOf(key);
    auto what = remote != nullptr && messageBytes <= kMaxMessageBytes ? signFor(keyContext) : std::nullopt;
    if (!what) {
      return EVP_DigestSignUpdate(context, message, messageBytes) == 1 ? EVP_DigestSignFinal(context, out, length) : -1;
    }
    what->form = Form::message;
    what->data.assign(message, message + messageBytes);
    give(remote->sign(std::move(*what)), out, length);
    return 1;
  });
}

// @return none for what the wire has no name for
std::optional<Decrypt> decryptFor(EVP_PKEY_CTX *context) {
  int padding = 0;
  if (EVP_PKEY_CTX_get_rsa_padding(context, &padding) != 1) {
    return std::nullopt;
  }
  if (padding == RSA_PKCS1_PADDING) {
    return Decrypt{Padding::pkcs1, Digest::none, Digest::none, 0, 0, {}, {}};
  }
  const EVP_MD *digest = nullptr;
  const EVP_MD *mask = nullptr;
  unsigned char *label = nullptr;
  if (padding != RSA_PKCS1_OAEP_PADDING || EVP_PKEY_CTX_get_rsa_oaep_md(context, &digest) != 1 ||
      EVP_PKEY_CTX_get_rsa_mgf1_md(context, &mask) != 1) {
    return std::nullopt;
  }
  const int labelBytes = EVP_PKEY_CTX_get0_rsa_oaep_label(context, &label);
  const View labelView(label, static_cast<std::size_t>(std::max(labelBytes, 0)));
  return Decrypt{Padding::oaep,
                 digestOf(EVP_MD_type(digest)),
                 digestOf(EVP_MD_type(mask)),
                 0,
                 0,
                 Bytes(labelView.begin(), labelView.end()),
                 {}};
}

Bytes decryptAt(const RemoteKey &remote, EVP_PKEY_CTX *context, View data) {
  int padding = 0;
  if (EVP_PKEY_CTX_get_rsa_padding(context, &padding) == 1 && padding == RSA_NO_PADDING) {
    return remote.raw(data);
  }
  auto what = decryptFor(context);
  if (!what) {
    throw Failure(Reason::unsupportedPadding);
  }
  what->data.assign(data.begin(), data.end());
  return remote.decrypt(std::move(*what));
}

int decrypt(EVP_PKEY_CTX *context, unsigned char *out, std::size_t *length, const unsigned char *in,
            std::size_t inBytes) noexcept {
  return guarded(-1, [&] {
    const RemoteKey *const remote = remoteOf(EVP_PKEY_CTX_get0_pkey(context));
    if (remote == nullptr || out == nullptr) {
      return decryptOfOpenssl()(context, out, length, in, inBytes);
    }
    give(decryptAt(*remote, context, {in, inBytes}), out, length);
    return 1;
  });
}

// There for the life of the process, as keys may be.
EVP_PKEY_METHOD *makeMethod(int type) noexcept {
  const EVP_PKEY_METHOD *standard = opensslMethod(type);
  int id = 0;
  int flags = 0;
  EVP_PKEY_meth_get0_info(&id, &flags, standard);
  EVP_PKEY_METHOD *method = EVP_PKEY_meth_new(type, flags);
  if (method != nullptr) {
    EVP_PKEY_meth_copy(method, standard);
    EVP_PKEY_meth_set_sign(method, nullptr, sign);
    EVP_PKEY_meth_set_digestsign(method, signMessage);
    if (type == EVP_PKEY_RSA) {
      EVP_PKEY_meth_set_decrypt(method, nullptr, decrypt);
    }
  }
  return method;
}

} // namespace

int methodFor(ENGINE * /*engine*/, EVP_PKEY_METHOD **method, const int **types, int type) noexcept {
  static EVP_PKEY_METHOD *const rsa = makeMethod(EVP_PKEY_RSA);
  static EVP_PKEY_METHOD *const ec = makeMethod(EVP_PKEY_EC);
  if (method == nullptr) {
    static constexpr int kNone = 0;
    *types = &kNone;
    return 0;
  }
  *method = type == EVP_PKEY_RSA ? rsa : type == EVP_PKEY_EC ? ec : nullptr;
  return *method != nullptr ? 1 : 0;
}

} // namespace krEngine
