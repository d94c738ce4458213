// The holder: an operation becomes a mechanism and its data, a session carries it out.
#include "TokenHolder.h"

#include "Failure.h"
#include "KeySearch.h"
#include "ReturnValue.h"
#include "SessionPool.h"
#include "Signature.h"
#include "Workers.h"

#include <openssl/err.h>

#include <algorithm>
#include <array>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;
using namespace pkcs11;

constexpr std::size_t kSessionsAtOnce = 8;
constexpr std::chrono::seconds kPatience{5};

// A token that was away knows neither session nor login nor key of before: with these, and with them alone, the
// operation is tried once more, in a new session.
constexpr std::array kSessionLost{CKR_SESSION_HANDLE_INVALID, CKR_SESSION_CLOSED,     CKR_DEVICE_REMOVED,
                                  CKR_TOKEN_NOT_PRESENT,      CKR_USER_NOT_LOGGED_IN, CKR_KEY_HANDLE_INVALID,
                                  CKR_OBJECT_HANDLE_INVALID};

bool isSessionLost(CK_RV value) { return std::ranges::find(kSessionLost, value) != kSessionLost.end(); }

CK_MECHANISM_TYPE rsaMechanism(int padding) {
  switch (padding) {
  case RSA_PKCS1_PADDING:
    return CKM_RSA_PKCS;
  case RSA_NO_PADDING:
    return CKM_RSA_X_509;
  default:
    throw Failure("the holder pkcs11 does not do RSA padding " + std::to_string(padding));
  }
}

/// ECDSA takes the leftmost bits of a digest that is longer than the group's order (FIPS 186-4, 6.4), and not every
/// token cuts the rest off.
Bytes leftmost(Bytes digest, const EC_KEY *key) {
  const auto order = static_cast<std::size_t>((EC_GROUP_order_bits(EC_KEY_get0_group(key)) + 7) / 8);
  digest.resize(std::min(digest.size(), order));
  return digest;
}

bool verifies(EVP_PKEY *key, const Bytes &digest, const Bytes &signature) {
  const EVPPKeyCtxPtr context(checked(EVP_PKEY_CTX_new(key, nullptr), "out of memory"));
  const bool good =
      EVP_PKEY_verify_init(context.get()) == 1 && EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) == 1 &&
      EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
  ERR_clear_error();
  return good;
}

class TokenHolder final : public KeyHolder {
public:
  TokenHolder(const TokenOptions &options, const Bytes &publicHalf, const FailureReport &report)
      : name_("the token '" + options.label + "'"), report_(report), publicHalves_{publicHalf},
        publicKey_(publicKeyFrom(publicHalf)), token_(options),
        pool_([this] { return openSession(); }, token_.sessionLimit(kSessionsAtOnce), kPatience),
        workers_(token_.sessionLimit(kSessionsAtOnce)) {
    requireKeyWithoutFurtherPin();
    requireSignature();
  }

  void ask(std::size_t /*key*/, Operation operation, int padding, const Bytes &data, Answer answer) override {
    workers_.post(
        [this, operation, padding, data, answer = std::move(answer)] { answer(perform(operation, padding, data)); });
  }

  const std::vector<Bytes> &publicHalves() const override { return publicHalves_; }
  std::string name() const override { return name_; }

private:
  std::optional<Bytes> perform(Operation operation, int padding, const Bytes &data) {
    try {
      return carryOut(operation, padding, data);
    } catch (const std::exception &failure) {
      report_(failure.what());
      return std::nullopt;
    }
  }

  KeySession openSession() {
    KeySession opened{token_.openSession(), CK_INVALID_HANDLE};
    opened.key = findPrivateKey(*opened.session, publicKey_.get());
    return opened;
  }

  void requireKeyWithoutFurtherPin() {
    SessionPool::Lease lease(pool_);
    const Bytes always = lease.session().attribute(lease.key(), CKA_ALWAYS_AUTHENTICATE);
    if (!always.empty() && always.front() != CK_FALSE) {
      throw Failure("the key wants the PIN for each signature (CKA_ALWAYS_AUTHENTICATE), which the holder does not do");
    }
    lease.giveBack();
  }

  /// What the token says of its objects is not proof that the key is the certificate's: a signature is.
  void requireSignature() {
    constexpr std::size_t kSha256Bytes = 32;
    const Bytes digest(kSha256Bytes, 1);
    if (!verifies(publicKey_.get(), digest, carryOut(Operation::sign, 0, digest))) {
      throw Failure("the key found on the token does not belong to the certificate: its signature does not verify");
    }
  }

  Bytes carryOut(Operation operation, int padding, const Bytes &data) {
    std::string loss;
    try {
      return carryOutOnce(operation, padding, data);
    } catch (const TokenFailure &failure) {
      if (!isSessionLost(failure.value)) {
        throw;
      }
      loss = failure.what();
    }
    pool_.closeIdle();
    token_.sessionLost();
    try {
      return carryOutOnce(operation, padding, data);
    } catch (const Failure &failure) {
      throw Failure(loss + "; and in a new session: " + failure.what());
    }
  }

  /// A session in which anything failed is not given back.
  Bytes carryOutOnce(Operation operation, int padding, const Bytes &data) {
    SessionPool::Lease lease(pool_);
    Bytes result = carryOutIn(lease, operation, padding, data);
    lease.giveBack();
    return result;
  }

  Bytes carryOutIn(const SessionPool::Lease &lease, Operation operation, int padding, const Bytes &data) const {
    const auto size = static_cast<std::size_t>(EVP_PKEY_size(publicKey_.get())); // an ECDSA signature's DER is longer
    const Session &session = lease.session();
    if (EVP_PKEY_base_id(publicKey_.get()) == EVP_PKEY_EC) {
      if (operation != Operation::sign) {
        throw Failure("an EC key only signs");
      }
      const Bytes digest = leftmost(data, krOpenSSL::keyObject::ecKeyOf(publicKey_.get()));
      return derSignature(session.sign(CKM_ECDSA, lease.key(), digest, size));
    }
    switch (operation) {
    case Operation::sign:
      return session.sign(CKM_RSA_PKCS, lease.key(), digestInfo(data), size);
    case Operation::rsaPrivateEncrypt:
      return session.sign(rsaMechanism(padding), lease.key(), data, size);
    case Operation::rsaPrivateDecrypt:
      return session.decrypt(rsaMechanism(padding), lease.key(), data, size);
    }
    throw Failure("unknown operation");
  }

  const std::string name_;
  const FailureReport report_;
  const std::vector<Bytes> publicHalves_;
  const EVPPKeyPtr publicKey_;
  Token token_;
  SessionPool pool_;
  Workers workers_; // use all of the above
};

} // namespace

std::unique_ptr<KeyHolder> startTokenHolder(const TokenOptions &options, const Bytes &publicHalf,
                                            const FailureReport &report) {
  return std::make_unique<TokenHolder>(options, publicHalf, report);
}

} // namespace delegated_tls
