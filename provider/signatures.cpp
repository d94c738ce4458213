// The table of functions for signatures.
#include "Algorithms.h"
#include "Signature.h"

#include <openssl/core_names.h>

#include <algorithm>

namespace krProvider {

namespace {

Signature &signatureOf(void *context) noexcept { return *static_cast<Signature *>(context); }

void *newContext(void *provider, const char *properties) noexcept {
  const auto &owner = *static_cast<const Provider *>(provider);
  return guarded(owner, [&] { return std::make_unique<Signature>(owner, properties).release(); });
}

void freeContext(void *context) noexcept { delete static_cast<Signature *>(context); }

void *duplicate(void *context) noexcept {
  const Signature &original = signatureOf(context);
  return guarded(original.provider(), [&] { return std::make_unique<Signature>(original).release(); });
}

template <Shadow::Start *how> int start(void *context, void *keyData, const OSSL_PARAM params[]) noexcept {
  Signature &signature = signatureOf(context);
  return guarded(signature.provider(), [&] {
    signature.start(how, static_cast<const Share *>(keyData), nullptr, params);
    return 1;
  });
}

template <Shadow::Start *how>
int startMessage(void *context, const char *digest, void *keyData, const OSSL_PARAM params[]) noexcept {
  Signature &signature = signatureOf(context);
  return guarded(signature.provider(), [&] {
    signature.start(how, static_cast<const Share *>(keyData), digest, params);
    return 1;
  });
}

int update(void *context, const unsigned char *data, std::size_t length) noexcept {
  Signature &signature = signatureOf(context);
  return guarded(signature.provider(), [&] {
    signature.update({data, length});
    return 1;
  });
}

// Without out only the length is asked for.
template <class Work>
int give(const Signature &signature, unsigned char *out, std::size_t *length, std::size_t room, Work work) noexcept {
  if (out == nullptr) {
    *length = signature.maxBytes();
    return 1;
  }
  return guarded(signature.provider(), [&] {
    const krHolder::Bytes made = work(room);
    std::ranges::copy(made, out);
    *length = made.size();
    return 1;
  });
}

int signDigest(void *context, unsigned char *out, std::size_t *length, std::size_t room, const unsigned char *digest,
               std::size_t digestLength) noexcept {
  const Signature &signature = signatureOf(context);
  return give(signature, out, length, room, [&](std::size_t most) {
    return signature.signDigest({digest, digestLength}, most);
  });
}

int finishSigning(void *context, unsigned char *out, std::size_t *length, std::size_t room) noexcept {
  Signature &signature = signatureOf(context);
  return give(signature, out, length, room, [&](std::size_t most) { return signature.signMessage(most); });
}

int signMessage(void *context, unsigned char *out, std::size_t *length, std::size_t room, const unsigned char *message,
                std::size_t messageLength) noexcept {
  return (out == nullptr || update(context, message, messageLength) == 1) && finishSigning(context, out, length, room);
}

int verifyDigest(void *context, const unsigned char *signature, std::size_t length, const unsigned char *digest,
                 std::size_t digestLength) noexcept {
  return signatureOf(context).verifyDigest({signature, length}, {digest, digestLength});
}

int finishVerifying(void *context, const unsigned char *signature, std::size_t length) noexcept {
  Signature &operation = signatureOf(context);
  return guarded(operation.provider(), [&] { return operation.verifyMessage({signature, length}); });
}

int verifyMessage(void *context, const unsigned char *signature, std::size_t length, const unsigned char *message,
                  std::size_t messageLength) noexcept {
  return update(context, message, messageLength) == 1 && finishVerifying(context, signature, length);
}

int recover(void *context, unsigned char *out, std::size_t *length, std::size_t room, const unsigned char *signature,
            std::size_t signatureLength) noexcept {
  *length = room;
  const Shadow *shadow = signatureOf(context).shadow();
  return shadow != nullptr && EVP_PKEY_verify_recover(shadow->get(), out, length, signature, signatureLength) == 1;
}

int setParams(void *context, const OSSL_PARAM params[]) noexcept { return signatureOf(context).set(params); }

int getParams(void *context, OSSL_PARAM params[]) noexcept {
  const Shadow *shadow = signatureOf(context).shadow();
  return shadow != nullptr && shadow->get(params) == 1;
}

const OSSL_PARAM *settable(void *context, void * /*provider*/) noexcept {
  const Shadow *shadow = context != nullptr ? signatureOf(context).shadow() : nullptr;
  return shadow != nullptr ? EVP_PKEY_CTX_settable_params(shadow->get()) : nullptr;
}

const OSSL_PARAM *gettable(void *context, void * /*provider*/) noexcept {
  const Shadow *shadow = context != nullptr ? signatureOf(context).shadow() : nullptr;
  return shadow != nullptr ? EVP_PKEY_CTX_gettable_params(shadow->get()) : nullptr;
}

} // namespace

const OSSL_DISPATCH *signature() noexcept {
  static const OSSL_DISPATCH rows[] = {
      row<OSSL_FUNC_signature_newctx_fn>(OSSL_FUNC_SIGNATURE_NEWCTX, newContext),
      row<OSSL_FUNC_signature_freectx_fn>(OSSL_FUNC_SIGNATURE_FREECTX, freeContext),
      row<OSSL_FUNC_signature_dupctx_fn>(OSSL_FUNC_SIGNATURE_DUPCTX, duplicate),
      row<OSSL_FUNC_signature_sign_init_fn>(OSSL_FUNC_SIGNATURE_SIGN_INIT, start<EVP_PKEY_sign_init_ex>),
      row<OSSL_FUNC_signature_sign_fn>(OSSL_FUNC_SIGNATURE_SIGN, signDigest),
      row<OSSL_FUNC_signature_verify_init_fn>(OSSL_FUNC_SIGNATURE_VERIFY_INIT, start<EVP_PKEY_verify_init_ex>),
      row<OSSL_FUNC_signature_verify_fn>(OSSL_FUNC_SIGNATURE_VERIFY, verifyDigest),
      row<OSSL_FUNC_signature_verify_recover_init_fn>(OSSL_FUNC_SIGNATURE_VERIFY_RECOVER_INIT,
                                                      start<EVP_PKEY_verify_recover_init_ex>),
      row<OSSL_FUNC_signature_verify_recover_fn>(OSSL_FUNC_SIGNATURE_VERIFY_RECOVER, recover),
      row<OSSL_FUNC_signature_digest_sign_init_fn>(OSSL_FUNC_SIGNATURE_DIGEST_SIGN_INIT,
                                                   startMessage<EVP_PKEY_sign_init_ex>),
      row<OSSL_FUNC_signature_digest_sign_update_fn>(OSSL_FUNC_SIGNATURE_DIGEST_SIGN_UPDATE, update),
      row<OSSL_FUNC_signature_digest_sign_final_fn>(OSSL_FUNC_SIGNATURE_DIGEST_SIGN_FINAL, finishSigning),
      row<OSSL_FUNC_signature_digest_sign_fn>(OSSL_FUNC_SIGNATURE_DIGEST_SIGN, signMessage),
      row<OSSL_FUNC_signature_digest_verify_init_fn>(OSSL_FUNC_SIGNATURE_DIGEST_VERIFY_INIT,
                                                     startMessage<EVP_PKEY_verify_init_ex>),
      row<OSSL_FUNC_signature_digest_verify_update_fn>(OSSL_FUNC_SIGNATURE_DIGEST_VERIFY_UPDATE, update),
      row<OSSL_FUNC_signature_digest_verify_final_fn>(OSSL_FUNC_SIGNATURE_DIGEST_VERIFY_FINAL, finishVerifying),
      row<OSSL_FUNC_signature_digest_verify_fn>(OSSL_FUNC_SIGNATURE_DIGEST_VERIFY, verifyMessage),
      row<OSSL_FUNC_signature_set_ctx_params_fn>(OSSL_FUNC_SIGNATURE_SET_CTX_PARAMS, setParams),
      row<OSSL_FUNC_signature_settable_ctx_params_fn>(OSSL_FUNC_SIGNATURE_SETTABLE_CTX_PARAMS, settable),
      row<OSSL_FUNC_signature_get_ctx_params_fn>(OSSL_FUNC_SIGNATURE_GET_CTX_PARAMS, getParams),
      row<OSSL_FUNC_signature_gettable_ctx_params_fn>(OSSL_FUNC_SIGNATURE_GETTABLE_CTX_PARAMS, gettable),
      {},
  };
  return rows;
}

} // namespace krProvider
