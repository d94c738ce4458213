// Key management: everything public is the public key's own answer; private parts are never there to give.
#include "Algorithms.h"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <new>

namespace krProvider {

namespace {

// Stays empty, without an import; without it libcrypto would say "malloc failure" where it compares keys by trying one.
void *newKey(void * /*provider*/) noexcept { return new (std::nothrow) Share(); }

// The decoders' reference is the place of a share, which is taken out.
void *load(const void *reference, std::size_t size) noexcept {
  if (size != sizeof(void *)) {
    return nullptr;
  }
  auto *place = static_cast<Share **>(const_cast<void *>(reference));
  return std::exchange(*place, nullptr);
}

void release(void *keyData) noexcept { delete static_cast<Share *>(keyData); }

void *duplicate(const void *keyData, int /*selection*/) noexcept {
  return guarded(shareOf(keyData)->provider(), [&] { return std::make_unique<Share>(shareOf(keyData)).release(); });
}

// As if the private key were here: it can be used.
int has(const void *keyData, int /*selection*/) noexcept { return shareOf(keyData) != nullptr; }

int match(const void *one, const void *other, int selection) noexcept {
  const EVP_PKEY *first = shareOf(one)->publicKey();
  const EVP_PKEY *second = shareOf(other)->publicKey();
  const bool keys = (selection & OSSL_KEYMGMT_SELECT_KEYPAIR) != 0;
  return (keys ? EVP_PKEY_eq(first, second) : EVP_PKEY_parameters_eq(first, second)) == 1;
}

int getParams(void *keyData, OSSL_PARAM params[]) noexcept {
  return EVP_PKEY_get_params(shareOf(keyData)->publicKey(), params);
}

// libcrypto tries another provider's signature first, and with everything that it exports; the refusal leads it to
// ours.
int exportParts(void *keyData, int selection, OSSL_CALLBACK *take, void *argument) noexcept {
  if ((selection & OSSL_KEYMGMT_SELECT_PRIVATE_KEY) != 0) {
    return 0;
  }
  return EVP_PKEY_export(shareOf(keyData)->publicKey(), selection, take, argument);
}

const char *ecOperationName(int operation) noexcept { return operation == OSSL_OP_SIGNATURE ? "ECDSA" : nullptr; }
const char *rsaOperationName(int /*operation*/) noexcept { return "RSA"; }

const OSSL_PARAM *gettableParams(void * /*context*/) noexcept {
  static const OSSL_PARAM params[] = {OSSL_PARAM_int(OSSL_PKEY_PARAM_BITS, nullptr),
                                      OSSL_PARAM_int(OSSL_PKEY_PARAM_SECURITY_BITS, nullptr),
                                      OSSL_PARAM_int(OSSL_PKEY_PARAM_MAX_SIZE, nullptr),
                                      OSSL_PARAM_utf8_string(OSSL_PKEY_PARAM_DEFAULT_DIGEST, nullptr, 0),
                                      OSSL_PARAM_BN(OSSL_PKEY_PARAM_RSA_N, nullptr, 0),
                                      OSSL_PARAM_BN(OSSL_PKEY_PARAM_RSA_E, nullptr, 0),
                                      OSSL_PARAM_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, nullptr, 0),
                                      OSSL_PARAM_octet_string(OSSL_PKEY_PARAM_PUB_KEY, nullptr, 0),
                                      OSSL_PARAM_END};
  return params;
}

const OSSL_PARAM *rsaExportTypes(int /*selection*/) noexcept {
  static const OSSL_PARAM params[] = {OSSL_PARAM_BN(OSSL_PKEY_PARAM_RSA_N, nullptr, 0),
                                      OSSL_PARAM_BN(OSSL_PKEY_PARAM_RSA_E, nullptr, 0), OSSL_PARAM_END};
  return params;
}

const OSSL_PARAM *ecExportTypes(int /*selection*/) noexcept {
  static const OSSL_PARAM params[] = {OSSL_PARAM_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, nullptr, 0),
                                      OSSL_PARAM_octet_string(OSSL_PKEY_PARAM_PUB_KEY, nullptr, 0), OSSL_PARAM_END};
  return params;
}

// No import: another provider's key stays where it is.
using Table = std::array<OSSL_DISPATCH, 12>;
Table table(OSSL_FUNC_keymgmt_export_types_fn *exportTypes,
            OSSL_FUNC_keymgmt_query_operation_name_fn *operationName) noexcept {
  return {row<OSSL_FUNC_keymgmt_new_fn>(OSSL_FUNC_KEYMGMT_NEW, newKey),
          row<OSSL_FUNC_keymgmt_load_fn>(OSSL_FUNC_KEYMGMT_LOAD, load),
          row<OSSL_FUNC_keymgmt_free_fn>(OSSL_FUNC_KEYMGMT_FREE, release),
          row<OSSL_FUNC_keymgmt_dup_fn>(OSSL_FUNC_KEYMGMT_DUP, duplicate),
          row<OSSL_FUNC_keymgmt_has_fn>(OSSL_FUNC_KEYMGMT_HAS, has),
          row<OSSL_FUNC_keymgmt_match_fn>(OSSL_FUNC_KEYMGMT_MATCH, match),
          row<OSSL_FUNC_keymgmt_get_params_fn>(OSSL_FUNC_KEYMGMT_GET_PARAMS, getParams),
          row<OSSL_FUNC_keymgmt_gettable_params_fn>(OSSL_FUNC_KEYMGMT_GETTABLE_PARAMS, gettableParams),
          row<OSSL_FUNC_keymgmt_export_fn>(OSSL_FUNC_KEYMGMT_EXPORT, exportParts),
          row<OSSL_FUNC_keymgmt_export_types_fn>(OSSL_FUNC_KEYMGMT_EXPORT_TYPES, exportTypes),
          row<OSSL_FUNC_keymgmt_query_operation_name_fn>(OSSL_FUNC_KEYMGMT_QUERY_OPERATION_NAME, operationName),
          {}};
}

} // namespace

const OSSL_DISPATCH *keyManagement(Kind kind) noexcept {
  static const Table rsa = table(rsaExportTypes, rsaOperationName);
  static const Table ec = table(ecExportTypes, ecOperationName);
  return (kind == Kind::ec ? ec : rsa).data();
}

} // namespace krProvider
