// A key holder with a back end of its own: krholder with one more word in a key's table. This one makes its keys when
// it starts, and they end with it; yours asks where your keys are, with the functions that a DelegatedKey has.
#include "daemon/CallbackKey.h"
#include "daemon/Daemon.h"

namespace {

krOpenSSL::EVPPKeyPtr makeKey(const std::string &curve) {
  krOpenSSL::ECKeyPtr key(EC_KEY_new_by_curve_name(OBJ_sn2nid(curve.c_str())));
  krOpenSSL::EVPPKeyPtr pair(EVP_PKEY_new());
  if (!key || !pair || EC_KEY_generate_key(key.get()) != 1 || EVP_PKEY_set1_EC_KEY(pair.get(), key.get()) != 1) {
    throw std::runtime_error("there is no curve \"" + curve + "\""); // the holder adds file, line and column
  }
  return pair;
}

std::unique_ptr<const krHolder::HeldKey> open(const krHolder::Settings &settings) {
  const std::shared_ptr<EVP_PKEY> key = makeKey(settings.at("fleeting"));
  krOpenSSL::KeyOperations operations;
  operations.sign = [key](const krOpenSSL::SignRequest &request, std::span<unsigned char> out) -> std::size_t {
    unsigned length = 0;
    ECDSA_sign(0, request.digest.data(), static_cast<int>(request.digest.size()), out.data(), &length,
               krOpenSSL::keyObject::ecKeyOf(key.get()));
    return length; // 0: it failed
  };
  return krHolder::callbackKey(krOpenSSL::publicHalf(key.get()), std::move(operations));
}

} // namespace

int main(int argc, char **argv) { return krHolder::run(argc, argv, {{"fleeting", {}, open}}); }
