// Whether a holder really signs for a reference.
#include "TestSignature.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace krHolder {

namespace {

struct Way {
  const char *name;
  Digest digest;
  const EVP_MD *(*algorithm)();
};
constexpr std::array kWays{Way{"sha256", Digest::sha256, EVP_sha256}, Way{"sha384", Digest::sha384, EVP_sha384},
                           Way{"sha512", Digest::sha512, EVP_sha512}};

// RFC 8446, 4.4.3, over a transcript that there never was.
Bytes certificateVerify() {
  using namespace std::string_view_literals;
  constexpr std::size_t kSpaces = 64;
  constexpr auto kContext = "TLS 1.3, server CertificateVerify\0"sv;
  Bytes message(kSpaces + kContext.size() + SHA256_DIGEST_LENGTH, ' ');
  const auto transcript = std::ranges::copy(kContext, message.begin() + kSpaces).out;
  if (RAND_bytes(&*transcript, SHA256_DIGEST_LENGTH) != 1) {
    throw std::runtime_error("there are no random bytes");
  }
  return message;
}

krOpenSSL::EVPPKeyPtr publicKeyOf(const Reference &reference) {
  const unsigned char *der = reference.publicKey.data();
  krOpenSSL::EVPPKeyPtr key(d2i_PUBKEY(nullptr, &der, static_cast<long>(reference.publicKey.size())));
  if (!key) {
    throw std::runtime_error("the reference's public key is none");
  }
  return key;
}

bool isGood(EVP_PKEY *key, const Sign &asked, const Bytes &signature, const Way &way) {
  const krOpenSSL::EVPMDCtxPtr context(EVP_MD_CTX_new());
  EVP_PKEY_CTX *parameters = nullptr;
  if (!context || EVP_DigestVerifyInit(context.get(), &parameters, way.algorithm(), nullptr, key) != 1) {
    return false;
  }
  const bool set =
      asked.scheme != Scheme::pss || (EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1 &&
                                      EVP_PKEY_CTX_set_rsa_pss_saltlen(parameters, asked.saltBytes) == 1);
  return set &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(), asked.data.data(), asked.data.size()) == 1;
}

Sign requestOf(const EVP_PKEY *key, const Way &way) {
  Sign sign;
  sign.digest = way.digest;
  sign.form = Form::message;
  sign.data = certificateVerify();
  sign.scheme = EVP_PKEY_base_id(key) == EVP_PKEY_EC ? Scheme::ecdsa : Scheme::pss;
  if (sign.scheme == Scheme::pss) {
    sign.maskDigest = way.digest;
    sign.saltBytes = static_cast<std::uint16_t>(EVP_MD_size(way.algorithm()));
  }
  return sign;
}

} // namespace

Fingerprint fingerprintOf(const Reference &reference) {
  Fingerprint fingerprint;
  SHA256(reference.publicKey.data(), reference.publicKey.size(), fingerprint.data());
  return fingerprint;
}

std::string testSignature(Client &holder, const Reference &reference) {
  const auto key = publicKeyOf(reference);
  Answer answer;
  for (const Way &way : kWays) {
    const Sign sign = requestOf(key.get(), way);
    answer = holder.ask({Operation::sign, 0, 0, fingerprintOf(reference), reference.name, sign});
    if (answer.status == Status::ok) {
      if (!isGood(key.get(), sign, answer.data, way)) {
        throw std::runtime_error("the holder's signature does not verify");
      }
      return std::string(sign.scheme == Scheme::ecdsa ? "ecdsa" : "pss") + " with " + way.name;
    }
  }
  throw std::runtime_error("the holder refuses: " + std::string(answer.data.begin(), answer.data.end()));
}

} // namespace krHolder
