// The holder: holder/pkcs11 behind the program's way of asking.
#include "TokenHolder.h"

#include "Failure.h"
#include "Workers.h"
#include "pkcs11/TokenKey.h"

namespace delegated_tls {
namespace {

using krHolder::pkcs11::Token;
using krHolder::pkcs11::TokenKey;

CK_MECHANISM rsaMechanism(int padding) {
  switch (padding) {
  case RSA_PKCS1_PADDING:
    return {CKM_RSA_PKCS, nullptr, 0};
  case RSA_NO_PADDING:
    return {CKM_RSA_X_509, nullptr, 0};
  default:
    throw Failure("the holder pkcs11 does not do RSA padding " + std::to_string(padding));
  }
}

class TokenHolder final : public KeyHolder {
public:
  TokenHolder(const TokenOptions &options, const Bytes &publicHalf, const FailureReport &report)
      : name_("the token '" + options.label + "'"), report_(report), publicHalves_{publicHalf},
        key_(Token::of({options.module, options.label, options.pinFile}), publicKeyFrom(publicHalf).get()),
        workers_(key_.token().sessionsAtOnce()) {}

  void ask(std::size_t /*key*/, Operation operation, int padding, const Bytes &data, Answer answer) override {
    workers_.post(
        [this, operation, padding, data, answer = std::move(answer)] { answer(perform(operation, padding, data)); });
  }

  const std::vector<Bytes> &publicHalves() const override { return publicHalves_; }
  std::string name() const override { return name_; }

private:
  std::optional<Bytes> perform(Operation operation, int padding, const Bytes &data) {
    try {
      const krHolder::Bytes result = carryOut(operation, padding, data);
      return Bytes(result.begin(), result.end());
    } catch (const std::exception &failure) {
      report_(failure.what());
      return std::nullopt;
    }
  }

  krHolder::Bytes carryOut(Operation operation, int padding, const Bytes &data) const {
    switch (operation) {
    case Operation::sign:
      return key_.signDigest(data);
    case Operation::rsaPrivateEncrypt:
      return key_.sign(rsaMechanism(padding), data);
    case Operation::rsaPrivateDecrypt:
      return key_.decrypt(rsaMechanism(padding), data);
    }
    throw Failure("unknown operation");
  }

  const std::string name_;
  const FailureReport report_;
  const std::vector<Bytes> publicHalves_;
  const TokenKey key_;
  Workers workers_; // use all of the above
};

} // namespace

std::unique_ptr<KeyHolder> startTokenHolder(const TokenOptions &options, const Bytes &publicHalf,
                                            const FailureReport &report) {
  return std::make_unique<TokenHolder>(options, publicHalf, report);
}

} // namespace delegated_tls
