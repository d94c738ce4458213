// What libcrypto finds in the provider: its one exported function, and the tables it answers with.
#include "Algorithms.h"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <new>

namespace krProvider {

namespace {

// The names that libcrypto has for them: with fewer, a key of ours would be of no kind that TLS knows.
constexpr char kRsa[] = "RSA:rsaEncryption:1.2.840.113549.1.1.1";
constexpr char kRsaPss[] = "RSA-PSS:RSASSA-PSS:1.2.840.113549.1.1.10";
constexpr char kEc[] = "EC:id-ecPublicKey:1.2.840.10045.2.1";

struct Tables {
  explicit Tables(const char *properties)
      : keys{{kRsa, properties, keyManagement(Kind::rsa), nullptr},
             {kRsaPss, properties, keyManagement(Kind::rsaPss), nullptr},
             {kEc, properties, keyManagement(Kind::ec), nullptr},
             {}},
        signatures{{kRsa, properties, signature(), nullptr}, {"ECDSA", properties, signature(), nullptr}, {}},
        ciphers{{kRsa, properties, cipher(), nullptr}, {}} {}

  OSSL_ALGORITHM keys[4];
  OSSL_ALGORITHM signatures[3];
  OSSL_ALGORITHM ciphers[2];
};

// Reading a reference is no cryptography: it is there whatever properties are asked for.
const OSSL_ALGORITHM *decoders() noexcept {
  static constexpr char kFromDer[] = "provider=krprovider,fips=yes,input=der,structure=krholder-reference";
  static const OSSL_ALGORITHM rows[] = {
      {"DER", "provider=krprovider,fips=yes,input=pem", pemDecoder(), nullptr},
      {kRsa, kFromDer, keyDecoder(Kind::rsa), nullptr},
      {kRsaPss, kFromDer, keyDecoder(Kind::rsaPss), nullptr},
      {kEc, kFromDer, keyDecoder(Kind::ec), nullptr},
      {},
  };
  return rows;
}

const OSSL_ALGORITHM *queryOperation(void *context, int operation, int *noCache) noexcept {
  static const Tables plain("provider=krprovider");
  static const Tables fips("provider=krprovider,fips=yes");
  *noCache = 0;
  const Tables &tables = static_cast<Provider *>(context)->settings().fips ? fips : plain;
  switch (operation) {
  case OSSL_OP_KEYMGMT:
    return tables.keys;
  case OSSL_OP_SIGNATURE:
    return tables.signatures;
  case OSSL_OP_ASYM_CIPHER:
    return tables.ciphers;
  case OSSL_OP_DECODER:
    return decoders();
  default:
    return nullptr;
  }
}

const OSSL_PARAM *gettableParams(void * /*context*/) noexcept {
  static const OSSL_PARAM params[] = {OSSL_PARAM_utf8_ptr(OSSL_PROV_PARAM_NAME, nullptr, 0),
                                      OSSL_PARAM_utf8_ptr(OSSL_PROV_PARAM_VERSION, nullptr, 0),
                                      OSSL_PARAM_int(OSSL_PROV_PARAM_STATUS, nullptr), OSSL_PARAM_END};
  return params;
}

int getParams(void * /*context*/, OSSL_PARAM params[]) noexcept {
  OSSL_PARAM *name = OSSL_PARAM_locate(params, OSSL_PROV_PARAM_NAME);
  OSSL_PARAM *version = OSSL_PARAM_locate(params, OSSL_PROV_PARAM_VERSION);
  OSSL_PARAM *status = OSSL_PARAM_locate(params, OSSL_PROV_PARAM_STATUS);
  return (name == nullptr || OSSL_PARAM_set_utf8_ptr(name, "Keys at a key holder") == 1) &&
         (version == nullptr || OSSL_PARAM_set_utf8_ptr(version, KR_PROVIDER_VERSION) == 1) &&
         (status == nullptr || OSSL_PARAM_set_int(status, 1) == 1);
}

const OSSL_ITEM *getReasonStrings(void * /*context*/) noexcept { return reasonTexts(); }

void teardown(void *context) noexcept { delete static_cast<Provider *>(context); }

const OSSL_DISPATCH *providerFunctions() noexcept {
  static const OSSL_DISPATCH rows[] = {
      row<OSSL_FUNC_provider_teardown_fn>(OSSL_FUNC_PROVIDER_TEARDOWN, teardown),
      row<OSSL_FUNC_provider_gettable_params_fn>(OSSL_FUNC_PROVIDER_GETTABLE_PARAMS, gettableParams),
      row<OSSL_FUNC_provider_get_params_fn>(OSSL_FUNC_PROVIDER_GET_PARAMS, getParams),
      row<OSSL_FUNC_provider_query_operation_fn>(OSSL_FUNC_PROVIDER_QUERY_OPERATION, queryOperation),
      row<OSSL_FUNC_provider_get_reason_strings_fn>(OSSL_FUNC_PROVIDER_GET_REASON_STRINGS, getReasonStrings),
      {},
  };
  return rows;
}

} // namespace

} // namespace krProvider

/// Where libcrypto begins (provider-base(7)). The provider contacts nobody until a key is used.
extern "C" __attribute__((visibility("default"))) int
OSSL_provider_init(const OSSL_CORE_HANDLE *handle, const OSSL_DISPATCH *in, const OSSL_DISPATCH **out, void **context) {
  using namespace krProvider;
  std::unique_ptr<Provider> provider(new (std::nothrow) Provider(handle, in));
  const auto start = [&] {
    provider->start(in);
    return 1;
  };
  if (!provider || guarded(*provider, start) == 0) {
    return 0;
  }
  *out = providerFunctions();
  *context = provider.release();
  return 1;
}
