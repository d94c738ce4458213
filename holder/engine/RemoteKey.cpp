// Asking a holder.
#include "RemoteKey.h"

#include "Errors.h"
#include "Settings.h"

#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>

namespace krEngine {

using namespace krHolder;
using namespace krOpenSSL;

namespace {

constexpr std::array<std::pair<int, Digest>, 6> kDigests{{{NID_md5_sha1, Digest::md5Sha1},
                                                          {NID_sha1, Digest::sha1},
                                                          {NID_sha224, Digest::sha224},
                                                          {NID_sha256, Digest::sha256},
                                                          {NID_sha384, Digest::sha384},
                                                          {NID_sha512, Digest::sha512}}};

Bytes bytesOf(View view) { return {view.begin(), view.end()}; }

// Random bytes, none of which is 0 (RFC 8017, 7.2.1).
void fillPadding(std::span<unsigned char> padding) {
  for (unsigned char &byte : padding) {
    do {
      if (RAND_bytes(&byte, 1) != 1) {
        throw Failure(Reason::internal, "there are no random bytes");
      }
    } while (byte == 0);
  }
}

// What a DelegatedKey's function gives: bytes written, or 0 with the reason on OpenSSL's error queue.
template <class Operate> std::size_t written(std::span<unsigned char> out, Operate operate) noexcept {
  return guarded<std::size_t>(0, [&] {
    const Bytes result = operate();
    if (result.size() > out.size()) {
      throw Failure(Reason::smallBuffer);
    }
    std::ranges::copy(result, out.begin());
    return result.size();
  });
}

Bytes decryptAs(const RemoteKey &key, const DecryptRequest &request) {
  if (request.padding == RSA_NO_PADDING) {
    return key.keyExchange(request.data);
  }
  const bool oaep = request.padding == RSA_PKCS1_OAEP_PADDING;
  const Digest digest = oaep ? Digest::sha1 : Digest::none;
  return key.decrypt({oaep ? Padding::oaep : Padding::pkcs1, digest, digest, 0, 0, {}, bytesOf(request.data)});
}

} // namespace

Digest digestOf(int hash) {
  const auto *const found = std::ranges::find(kDigests, hash, &std::pair<int, Digest>::first);
  if (found == kDigests.end()) {
    throw Failure(Reason::unsupportedDigest);
  }
  return found->second;
}

RemoteKey::RemoteKey(const Reference &reference) : name_(reference.name), client_(clientFor(reference.socket)) {
  SHA256(reference.publicKey.data(), reference.publicKey.size(), fingerprint_.data());
  const unsigned char *der = reference.publicKey.data();
  publicKey_.reset(d2i_PUBKEY(nullptr, &der, static_cast<long>(reference.publicKey.size())));
  const int type = publicKey_ ? EVP_PKEY_base_id(publicKey_.get()) : NID_undef;
  if (type != EVP_PKEY_RSA && type != EVP_PKEY_EC) {
    throw Failure(Reason::reference, "its public key is neither RSA nor EC");
  }
}

Bytes RemoteKey::sign(Sign what) const {
  const std::size_t least = what.scheme == Scheme::ecdsa ? 1 : size();
  return ask(Operation::sign, std::move(what), least, size());
}

Bytes RemoteKey::decrypt(Decrypt what) const { return ask(Operation::decrypt, std::move(what), 0, size()); }

Bytes RemoteKey::raw(View block) const { return ask(Operation::raw, Raw{bytesOf(block)}, size(), size()); }

Bytes RemoteKey::keyExchange(View block) const {
  constexpr std::size_t kLeastPaddingBytes = 11;
  if (size() < kPremasterBytes + kLeastPaddingBytes) {
    throw Failure(Reason::unsupportedPadding);
  }
  const Bytes premaster =
      ask(Operation::decrypt, Decrypt{Padding::tls, Digest::none, Digest::none, kAnyVersion, 0, {}, bytesOf(block)},
          kPremasterBytes, kPremasterBytes);
  Bytes padded(size());
  padded[1] = 2; // RFC 8017, 7.2.1: 0, 2, padding, 0, message
  fillPadding(std::span(padded).subspan(2, size() - kPremasterBytes - 3));
  std::ranges::copy(premaster, padded.end() - kPremasterBytes);
  return padded;
}

Bytes RemoteKey::ask(Operation operation, decltype(Request::body) body, std::size_t least, std::size_t most) const {
  Answer answer = client_->ask({operation, 0, 0, fingerprint_, name_, std::move(body)});
  if (answer.status != Status::ok) {
    throw Failure(reasonOf(answer.status), std::string(answer.data.begin(), answer.data.end()));
  }
  if (answer.data.size() < least || answer.data.size() > most) {
    throw Failure(Reason::answer);
  }
  return std::move(answer.data);
}

KeyOperations operationsOf(const std::shared_ptr<const RemoteKey> &key) {
  const bool isRsa = EVP_PKEY_base_id(key->publicKey()) == EVP_PKEY_RSA;
  KeyOperations operations;
  operations.sign = [key, isRsa](const SignRequest &request, std::span<unsigned char> out) {
    return written(out, [&] {
      return key->sign({isRsa ? Scheme::pkcs1 : Scheme::ecdsa, digestOf(request.hash), Digest::none, 0, Form::digest,
                        bytesOf(request.digest)});
    });
  };
  if (isRsa) {
    operations.signPss = [key](const PssRequest &request, std::span<unsigned char> out) {
      return written(out, [&] { return key->raw(request.block); });
    };
    operations.decrypt = [key](const DecryptRequest &request, std::span<unsigned char> out) {
      return written(out, [&] { return decryptAs(*key, request); });
    };
  }
  return operations;
}

} // namespace krEngine
