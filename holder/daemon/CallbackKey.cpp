// A holder's requests in the words of KeyOperations.
#include "CallbackKey.h"

#include "Failure.h"
#include "Padding.h"

namespace krHolder {

namespace {

using namespace krOpenSSL;

class CallbackKey final : public HeldKey {
public:
  CallbackKey(EVPPKeyPtr publicHalf, KeyOperations operations)
      : publicHalf_(std::move(publicHalf)), operations_(std::move(operations)) {}

  EVP_PKEY *publicHalf() const noexcept override { return publicHalf_.get(); }

  Bytes sign(const Signing &what) const override {
    const int hash = EVP_MD_type(what.digest);
    if (what.scheme != Scheme::pss) {
      return ask(operations_.sign, SignRequest{what.value, hash});
    }
    const Bytes block = pssBlock(publicHalf_.get(), what);
    return ask(operations_.signPss, PssRequest{block, hash, EVP_MD_type(what.maskDigest), what.saltBytes});
  }

  Bytes decrypt(const Decrypting &what) const override {
    const Bytes block = ask(operations_.decrypt, DecryptRequest{what.data, RSA_NO_PADDING});
    return what.padding == RSA_NO_PADDING ? block : withoutPadding(publicHalf_.get(), what, block);
  }

private:
  template <class Request>
  Bytes ask(const std::function<std::size_t(const Request &, std::span<unsigned char>)> &function,
            const Request &request) const {
    if (!function) {
      throw Refusal(Status::badRequest, "the key does not do this");
    }
    Bytes out(static_cast<std::size_t>(EVP_PKEY_size(publicHalf_.get())));
    const std::size_t length = function(request, out);
    if (length == 0 || length > out.size()) {
      throw std::runtime_error("the key's function gave no result");
    }
    out.resize(length);
    return out;
  }

  const EVPPKeyPtr publicHalf_;
  const KeyOperations operations_;
};

} // namespace

std::unique_ptr<const HeldKey> callbackKey(EVPPKeyPtr publicHalf, KeyOperations operations) {
  return std::make_unique<CallbackKey>(std::move(publicHalf), std::move(operations));
}

} // namespace krHolder
