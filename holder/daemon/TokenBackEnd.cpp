// Keys on PKCS#11 tokens: RSA and ECDSA as far as the token has them, the paddings that it has not are done here.
#include "BackEnd.h"
#include "Failure.h"
#include "KeyFile.h"
#include "Padding.h"
#include "pkcs11/TokenKey.h"

#include <algorithm>
#include <array>

namespace krHolder {

namespace {

using pkcs11::Token;
using pkcs11::TokenKey;

struct Hash {
  int type;
  CK_MECHANISM_TYPE mechanism;
  CK_RSA_PKCS_MGF_TYPE mask;
};
constexpr std::array kHashes{Hash{NID_sha1, CKM_SHA_1, CKG_MGF1_SHA1}, Hash{NID_sha224, CKM_SHA224, CKG_MGF1_SHA224},
                             Hash{NID_sha256, CKM_SHA256, CKG_MGF1_SHA256},
                             Hash{NID_sha384, CKM_SHA384, CKG_MGF1_SHA384},
                             Hash{NID_sha512, CKM_SHA512, CKG_MGF1_SHA512}};

const Hash &hashOf(const EVP_MD *digest) {
  const auto *const found = std::ranges::find(kHashes, EVP_MD_type(digest), &Hash::type);
  if (found == kHashes.end()) {
    throw Refusal(Status::badRequest, "tokens do not have this digest for that");
  }
  return *found;
}

class OnToken final : public HeldKey {
public:
  explicit OnToken(std::shared_ptr<Token> token, EVP_PKEY *publicHalf)
      : key_(std::move(token), publicHalf), doesPss_(key_.token().has(CKM_RSA_PKCS_PSS, CKF_SIGN)),
        decryptsRaw_(key_.token().has(CKM_RSA_X_509, CKF_DECRYPT)) {}

  EVP_PKEY *publicHalf() const noexcept override { return key_.publicHalf(); }

  Bytes sign(const Signing &what) const override {
    if (what.scheme != Scheme::pss) {
      return key_.signDigest(what.value);
    }
    if (!doesPss_) {
      return key_.sign({CKM_RSA_X_509, nullptr, 0}, pssBlock(key_.publicHalf(), what));
    }
    CK_RSA_PKCS_PSS_PARAMS parameters{hashOf(what.digest).mechanism, hashOf(what.maskDigest).mask,
                                      static_cast<CK_ULONG>(what.saltBytes)};
    return key_.sign({CKM_RSA_PKCS_PSS, &parameters, sizeof parameters}, what.value);
  }

  // Where the token decrypts without padding the rest is done here: in the same time for good and bad padding.
  Bytes decrypt(const Decrypting &what) const override {
    if (decryptsRaw_) {
      const Bytes block = key_.decrypt({CKM_RSA_X_509, nullptr, 0}, what.data);
      return what.padding == RSA_NO_PADDING ? block : withoutPadding(key_.publicHalf(), what, block);
    }
    switch (what.padding) {
    case RSA_PKCS1_PADDING:
      return key_.decrypt({CKM_RSA_PKCS, nullptr, 0}, what.data);
    case RSA_PKCS1_OAEP_PADDING:
      return decryptOaep(what);
    default:
      throw Refusal(Status::badRequest, "the token has no RSA without padding, which this needs");
    }
  }

private:
  Bytes decryptOaep(const Decrypting &what) const {
    Bytes label(what.label.begin(), what.label.end()); // read only, and yet not const
    CK_RSA_PKCS_OAEP_PARAMS parameters{hashOf(what.digest).mechanism, hashOf(what.maskDigest).mask, CKZ_DATA_SPECIFIED,
                                       label.empty() ? nullptr : label.data(), label.size()};
    return key_.decrypt({CKM_RSA_PKCS_OAEP, &parameters, sizeof parameters}, what.data);
  }

  const TokenKey key_;
  const bool doesPss_;
  const bool decryptsRaw_;
};

} // namespace

BackEnd tokenBackEnd() {
  return {
      "token", {"module", "pin_file", "public_key"}, [](const Settings &settings) {
        const auto publicHalf = readPublicKeyFile(required(settings, "public_key"));
        auto token = Token::of({required(settings, "module"), settings.at("token"), required(settings, "pin_file")});
        return std::make_unique<OnToken>(std::move(token), publicHalf.get());
      }};
}

} // namespace krHolder
