// Keys in PEM files: OpenSSL has them, and does the rest.
#include "BackEnd.h"
#include "KeyFile.h"

#include <openssl/err.h>

#include <stdexcept>

namespace krHolder {

namespace {

using krOpenSSL::EVPPKeyCtxPtr;
using krOpenSSL::EVPPKeyPtr;

void mustDo(bool done) {
  if (!done) {
    const char *const reason = ERR_reason_error_string(ERR_peek_last_error());
    ERR_clear_error();
    throw std::runtime_error(reason != nullptr ? reason : "OpenSSL gives no reason");
  }
}

// OpenSSL asks for the room first, and tells in the end how much of it is used.
template <class Operation> Bytes resultOf(EVP_PKEY_CTX *context, Operation operate, View data) {
  std::size_t length = 0;
  mustDo(operate(context, nullptr, &length, data.data(), data.size()) == 1);
  Bytes out(length);
  mustDo(operate(context, out.data(), &length, data.data(), data.size()) == 1);
  out.resize(length);
  return out;
}

void setPss(EVP_PKEY_CTX *context, const Signing &what) {
  mustDo(EVP_PKEY_CTX_set_rsa_mgf1_md(context, what.maskDigest) == 1);
  mustDo(EVP_PKEY_CTX_set_rsa_pss_saltlen(context, what.saltBytes) == 1);
}

void setOaep(EVP_PKEY_CTX *context, const Decrypting &what) {
  mustDo(EVP_PKEY_CTX_set_rsa_oaep_md(context, what.digest) == 1 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md(context, what.maskDigest) == 1);
  if (!what.label.empty()) {
    void *label = OPENSSL_memdup(what.label.data(), what.label.size());
    const bool taken =
        label != nullptr && EVP_PKEY_CTX_set0_rsa_oaep_label(context, label, static_cast<int>(what.label.size())) == 1;
    if (!taken) {
      OPENSSL_free(label);
    }
    mustDo(taken);
  }
}

class FileKey final : public HeldKey {
public:
  explicit FileKey(EVPPKeyPtr key) : key_(std::move(key)) {}

  EVP_PKEY *publicHalf() const noexcept override { return key_.get(); }

  Bytes sign(const Signing &what) const override {
    const EVPPKeyCtxPtr context = begin(EVP_PKEY_sign_init);
    if (what.scheme != Scheme::ecdsa) {
      const int padding = what.scheme == Scheme::pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING;
      mustDo(EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1);
    }
    mustDo(EVP_PKEY_CTX_set_signature_md(context.get(), what.digest) == 1);
    if (what.scheme == Scheme::pss) {
      setPss(context.get(), what);
    }
    return resultOf(context.get(), EVP_PKEY_sign, what.value);
  }

  Bytes decrypt(const Decrypting &what) const override {
    const EVPPKeyCtxPtr context = begin(EVP_PKEY_decrypt_init);
    mustDo(EVP_PKEY_CTX_set_rsa_padding(context.get(), what.padding) == 1);
    if (what.padding == RSA_PKCS1_OAEP_PADDING) {
      setOaep(context.get(), what);
    }
    return resultOf(context.get(), EVP_PKEY_decrypt, what.data);
  }

private:
  EVPPKeyCtxPtr begin(int (*init)(EVP_PKEY_CTX *)) const {
    EVPPKeyCtxPtr context(EVP_PKEY_CTX_new(key_.get(), nullptr));
    mustDo(context != nullptr && init(context.get()) == 1);
    return context;
  }

  const EVPPKeyPtr key_;
};

} // namespace

BackEnd fileBackEnd() {
  return {"file", {"passphrase_file"}, [](const Settings &settings) {
            const auto passphrase = settings.find("passphrase_file");
            return std::make_unique<FileKey>(
                readKeyFile(settings.at("file"), passphrase == settings.end() ? "" : passphrase->second));
          }};
}

} // namespace krHolder
