// The least that behaves as wolfEngine does: a dynamic engine whose RSA method has no arithmetic of its own, whose
// EVP_PKEY methods (one for RSA and for whatever else is asked for) sign with the key itself, which serves something of
// every kind, and which logs from inside OpenSSL's calls.
#include "support/WolfEngineStandIn.h"

#include <krOpenSSL/krExport.h>
#include <krOpenSSL/krHandles.h>

#include <openssl/rand.h>
#include <openssl/sha.h>

#include <cstdlib>
#include <cstring>
#include <new>

#define EXPORTED extern "C" KR_API

using krOpenSSL::ECKeyMethodPtr;
using krOpenSSL::ECKeyPtr;
using krOpenSSL::RSAMethodPtr;
using krOpenSSL::RSAPtr;

EXPORTED RSA_METHOD *we_rsa_method;
EXPORTED EC_KEY_METHOD *we_ec_key_method;
EXPORTED krTest::WolfEngineRecord standInRecord;
RSA_METHOD *we_rsa_method = nullptr;
EC_KEY_METHOD *we_ec_key_method = nullptr;
krTest::WolfEngineRecord standInRecord;

namespace {

using LogCallback = void (*)(int level, int component, const char *message);
using WolfSSLLogCallback = void (*)(int level, const char *message);

EVP_PKEY_METHOD *rsaPkeyMethod = nullptr;
EVP_PKEY_METHOD *ecPkeyMethod = nullptr;
bool debug = false;
LogCallback logCallback = nullptr;
WolfSSLLogCallback wolfSSLLogCallback = nullptr;

bool fails(const char *step) {
  const char *failing = std::getenv(krTest::kStandInFails);
  return failing != nullptr && std::strcmp(failing, step) == 0;
}

void log(const char *message) {
  if (debug && logCallback != nullptr) {
    logCallback(2, 7, message);
  }
  if (debug && wolfSSLLogCallback != nullptr) {
    wolfSSLLogCallback(3, message);
  }
}

// wolfSSL's arithmetic, played by OpenSSL's.
RSAPtr playedByOpenSSL(const RSA *rsa) {
  RSAPtr copy(RSA_new());
  RSA_set_method(copy.get(), RSA_PKCS1_OpenSSL());
  RSA_set0_key(copy.get(), BN_dup(RSA_get0_n(rsa)), BN_dup(RSA_get0_e(rsa)),
               RSA_get0_d(rsa) != nullptr ? BN_dup(RSA_get0_d(rsa)) : nullptr);
  return copy;
}

template <auto getOperation>
int rsaOperation(int length, const unsigned char *from, unsigned char *to, RSA *rsa, int padding) {
  log("RSA operation");
  const RSAPtr copy = playedByOpenSSL(rsa);
  return getOperation(RSA_PKCS1_OpenSSL())(length, from, to, copy.get(), padding);
}

int signRsa(EVP_PKEY_CTX *context, unsigned char *out, std::size_t *outLength, const unsigned char *digest,
            std::size_t length) {
  RSA *rsa = krOpenSSL::keyObject::rsaOf(EVP_PKEY_CTX_get0_pkey(context));
  if (out == nullptr) {
    *outLength = static_cast<std::size_t>(RSA_size(rsa));
    return 1;
  }
  ++standInRecord.ownSignatures;
  log("own RSA signature: 100%s");
  const RSAPtr copy = playedByOpenSSL(rsa);
  const EVP_MD *hash = nullptr;
  int padding = 0;
  int salt = 0;
  EVP_PKEY_CTX_get_signature_md(context, &hash);
  EVP_PKEY_CTX_get_rsa_padding(context, &padding);
  if (padding == RSA_PKCS1_PADDING) {
    unsigned int written = 0;
    const int made = RSA_sign(EVP_MD_type(hash), digest, static_cast<unsigned int>(length), out, &written, copy.get());
    *outLength = written;
    return made;
  }
  EVP_PKEY_CTX_get_rsa_pss_saltlen(context, &salt);
  std::vector<unsigned char> block(static_cast<std::size_t>(RSA_size(rsa)));
  RSA_padding_add_PKCS1_PSS(copy.get(), block.data(), digest, hash, salt);
  const int written = RSA_private_encrypt(RSA_size(rsa), block.data(), out, copy.get(), RSA_NO_PADDING);
  *outLength = static_cast<std::size_t>(written);
  return written > 0 ? 1 : 0;
}

int signEc(EVP_PKEY_CTX *context, unsigned char *out, std::size_t *outLength, const unsigned char *digest,
           std::size_t length) {
  EC_KEY *key = krOpenSSL::keyObject::ecKeyOf(EVP_PKEY_CTX_get0_pkey(context));
  if (out == nullptr) {
    *outLength = static_cast<std::size_t>(ECDSA_size(key));
    return 1;
  }
  ++standInRecord.ownSignatures;
  log("own EC signature");
  const ECKeyPtr copy(EC_KEY_dup(key));
  EC_KEY_set_method(copy.get(), EC_KEY_OpenSSL());
  unsigned int written = 0;
  const int made = ECDSA_sign(0, digest, static_cast<int>(length), out, &written, copy.get());
  *outLength = written;
  return made;
}

int (*openSSLsEcControl)(EVP_PKEY_CTX *context, int type, int number, void *pointer) = nullptr;

int controlEc(EVP_PKEY_CTX *context, int type, int number, void *pointer) {
  if (type == EVP_PKEY_CTRL_GET_MD) {
    ++standInRecord.digestsAsked;
    log("wolfEngine Error: unknown control");
    return 0;
  }
  return openSSLsEcControl(context, type, number, pointer);
}

int pkeyMethods(ENGINE * /*engine*/, EVP_PKEY_METHOD **method, const int **types, int type) {
  static const int kTypes[]{EVP_PKEY_RSA, EVP_PKEY_EC};
  if (method == nullptr) {
    *types = kTypes;
    return 2;
  }
  *method = type == EVP_PKEY_EC ? ecPkeyMethod : rsaPkeyMethod;
  return 1;
}

// OpenSSL 3's own has no room for its state.
EVP_MD *ownSha256 = nullptr;
const EVP_MD *sha256() { return ownSha256; }

bool makeDigest() {
  ownSha256 = EVP_MD_meth_dup(EVP_sha256());
  return ownSha256 != nullptr && EVP_MD_meth_set_app_datasize(ownSha256, sizeof(EVP_MD *) + sizeof(SHA256_CTX)) == 1;
}

// A selector of one algorithm, which is OpenSSL's own.
template <class Method, const Method *get(), int nid>
int select(ENGINE * /*engine*/, const Method **method, const int **ids, int id) {
  static const int kIds[]{nid};
  if (method == nullptr) {
    *ids = kIds;
    return 1;
  }
  *method = id == nid ? get() : nullptr;
  return *method != nullptr ? 1 : 0;
}

int signElsewise(int /*type*/, const unsigned char * /*digest*/, int /*length*/, unsigned char * /*out*/,
                 unsigned int * /*outLength*/, const BIGNUM * /*kinv*/, const BIGNUM * /*r*/, EC_KEY * /*key*/) {
  return 0;
}

using PkeyMethodPtr = krOpenSSL::Handle<EVP_PKEY_METHOD, EVP_PKEY_meth_free>;

template <class Sign> PkeyMethodPtr makePkeyMethod(int type, Sign *sign) {
  int (*initialise)(EVP_PKEY_CTX *) = nullptr;
  PkeyMethodPtr method(EVP_PKEY_meth_new(type, EVP_PKEY_FLAG_AUTOARGLEN));
  if (method) {
    EVP_PKEY_meth_copy(method.get(), EVP_PKEY_meth_find(type));
    EVP_PKEY_meth_get_sign(method.get(), &initialise, nullptr);
    EVP_PKEY_meth_set_sign(method.get(), initialise, sign);
  }
  return method;
}

bool makeMethods() {
  RSAMethodPtr rsa(RSA_meth_new("wolfEngine RSA method", 0));
  ECKeyMethodPtr ec(EC_KEY_METHOD_new(EC_KEY_OpenSSL()));
  PkeyMethodPtr rsaPkey = makePkeyMethod(EVP_PKEY_RSA, signRsa);
  PkeyMethodPtr ecPkey = makePkeyMethod(EVP_PKEY_EC, signEc);
  if (!rsa || !ec || !rsaPkey || !ecPkey || !makeDigest()) {
    return false;
  }
  EVP_PKEY_meth_get_ctrl(ecPkey.get(), &openSSLsEcControl, nullptr);
  EVP_PKEY_meth_set_ctrl(ecPkey.get(), controlEc, nullptr);
  RSA_meth_set_pub_enc(rsa.get(), rsaOperation<RSA_meth_get_pub_enc>);
  RSA_meth_set_pub_dec(rsa.get(), rsaOperation<RSA_meth_get_pub_dec>);
  RSA_meth_set_priv_enc(rsa.get(), rsaOperation<RSA_meth_get_priv_enc>);
  RSA_meth_set_priv_dec(rsa.get(), rsaOperation<RSA_meth_get_priv_dec>);
  EC_KEY_METHOD_set_sign(ec.get(), signElsewise, nullptr, nullptr);
  we_rsa_method = rsa.release();
  we_ec_key_method = ec.release();
  standInRecord.rsaSign = reinterpret_cast<const void *>(signRsa);
  rsaPkeyMethod = rsaPkey.release();
  ecPkeyMethod = ecPkey.release();
  return true;
}

int drawBytes(unsigned char *out, int length) {
  ++standInRecord.randomRequests;
  return RAND_OpenSSL()->bytes(out, length);
}

const RAND_METHOD kRandom{nullptr, drawBytes, nullptr, nullptr, drawBytes, [] { return 1; }};

int initialise(ENGINE * /*engine*/) {
  ++standInRecord.initialisations;
  return fails("default") || fails("init") ? 0 : 1;
}

int finish(ENGINE * /*engine*/) {
  ++standInRecord.finishes;
  return 1;
}

const ENGINE_CMD_DEFN kCommands[]{
    {ENGINE_CMD_BASE, "enable_debug", "", ENGINE_CMD_FLAG_NUMERIC},
    {ENGINE_CMD_BASE + 1, "enable_debug_wolfssl", "", ENGINE_CMD_FLAG_NUMERIC},
    {ENGINE_CMD_BASE + 2, "log_level", "", ENGINE_CMD_FLAG_NUMERIC},
    {ENGINE_CMD_BASE + 3, "set_logging_cb", "", ENGINE_CMD_FLAG_INTERNAL},
    {ENGINE_CMD_BASE + 4, "set_logging_cb_wolfssl", "", ENGINE_CMD_FLAG_INTERNAL},
    {0, nullptr, nullptr, 0},
};

// False without memory.
bool recordCommand(const char *name, long number, bool withFunction) try {
  standInRecord.commands.push_back(std::string(name) + " " + std::to_string(number) +
                                   (withFunction ? " function" : ""));
  return true;
} catch (const std::bad_alloc &) {
  return false;
}

int control(ENGINE * /*engine*/, int command, long number, void * /*pointer*/, void (*function)()) {
  const int index = command - static_cast<int>(ENGINE_CMD_BASE);
  const char *name = kCommands[index].cmd_name;
  if (!recordCommand(name, number, function != nullptr) || fails(name)) {
    return 0;
  }
  if (index == 0) {
    debug = number != 0;
  } else if (index == 3) {
    logCallback = reinterpret_cast<LogCallback>(function);
  } else if (index == 4) {
    wolfSSLLogCallback = reinterpret_cast<WolfSSLLogCallback>(function);
  }
  return 1;
}

int bind(ENGINE *engine) {
  if (fails("bind") || !makeMethods()) {
    return 0;
  }
  bool bound = (fails("no id") || ENGINE_set_id(engine, fails("id") ? "libwolfengine" : "wolfEngine") != 0) &&
               ENGINE_set_name(engine, "stand-in for wolfEngine") != 0 &&
               ENGINE_set_init_function(engine, initialise) != 0 && ENGINE_set_finish_function(engine, finish) != 0 &&
               ENGINE_set_ctrl_function(engine, control) != 0 && ENGINE_set_cmd_defns(engine, kCommands) != 0;
  if (!fails("init")) {
    bound = bound && ENGINE_set_RSA(engine, we_rsa_method) != 0 && ENGINE_set_EC(engine, we_ec_key_method) != 0 &&
            ENGINE_set_RAND(engine, &kRandom) != 0 && ENGINE_set_pkey_meths(engine, pkeyMethods) != 0 &&
            ENGINE_set_DSA(engine, DSA_OpenSSL()) != 0 && ENGINE_set_DH(engine, DH_OpenSSL()) != 0 &&
            ENGINE_set_ciphers(engine, select<EVP_CIPHER, EVP_aes_128_cbc, NID_aes_128_cbc>) != 0 &&
            ENGINE_set_digests(engine, select<EVP_MD, sha256, NID_sha256>) != 0;
  }
  if (fails("methods")) {
    we_ec_key_method = nullptr;
  }
  return bound ? 1 : 0;
}

} // namespace

EXPORTED unsigned long v_check(unsigned long version) {
  return version >= OSSL_DYNAMIC_OLDEST ? OSSL_DYNAMIC_VERSION : 0;
}

EXPORTED int bind_engine(ENGINE *engine, const char * /*id*/, const dynamic_fns * /*functions*/) {
  return bind(engine);
}
