// The digest classes.
#include <krOpenSSL/kroHash.h>

#include "LegacyAlgorithms.h"
#include "Lengths.h"
#include "Usable.h"

#include <openssl/evp.h>

#include <cstring>
#include <utility>

namespace {

// A context in which the digest has been started, or null.
EVP_MD_CTX *startDigest(const EVP_MD *algorithm) noexcept {
  EVP_MD_CTX *context = algorithm != nullptr && krOpenSSL::canBegin() ? EVP_MD_CTX_new() : nullptr;
  if (context == nullptr) {
    return nullptr;
  }
  // Before the start: in FIPS mode OpenSSL refuses some digests without it.
  EVP_MD_CTX_set_flags(context, EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
  if (EVP_DigestInit_ex(context, algorithm, nullptr) != 1) {
    EVP_MD_CTX_free(context);
    return nullptr;
  }
  return context;
}

// Most often there is none: not worth OpenSSL's calls to find that out.
void release(EVP_MD_CTX *context) noexcept {
  if (context != nullptr) {
    EVP_MD_CTX_free(context);
  }
}

EVP_MD_CTX *copyOf(const EVP_MD_CTX *source) noexcept {
  EVP_MD_CTX *copy = source != nullptr ? EVP_MD_CTX_new() : nullptr;
  if (copy != nullptr && EVP_MD_CTX_copy_ex(copy, source) != 1) {
    EVP_MD_CTX_free(copy);
    return nullptr;
  }
  return copy;
}

} // namespace

kroHashBase::kroHashBase(const evp_md_st *algorithm) : algorithm_(algorithm), context_(nullptr) {}

kroHashBase::kroHashBase(const kroHashBase &other) : algorithm_(other.algorithm_), context_(copyOf(other.context_)) {}

kroHashBase::~kroHashBase() { release(context_); }

kroHashBase &kroHashBase::operator=(const kroHashBase &other) {
  if (this != &other) {
    algorithm_ = other.algorithm_;
    release(std::exchange(context_, copyOf(other.context_)));
  }
  return *this;
}

void kroHashBase::Init() { release(std::exchange(context_, startDigest(algorithm_))); }

void kroHashBase::Update(const unsigned char *data, std::uint64_t len) {
  // A digest over only some of the data must never come out.
  if (context_ != nullptr && !(krOpenSSL::isReadable(data, len) && EVP_DigestUpdate(context_, data, len) == 1)) {
    EVP_MD_CTX_free(std::exchange(context_, nullptr));
  }
}

void kroHashBase::Final(unsigned char *out) {
  if (context_ != nullptr && out != nullptr) {
    EVP_DigestFinal_ex(context_, out, nullptr);
  }
  release(std::exchange(context_, nullptr));
}

void kroHashBase::operator()(unsigned char *out, const unsigned char *data, std::uint64_t len) {
  Init();
  Update(data, len);
  Final(out);
}

void kroHashBase::__autoclassinit2(std::uint64_t n) { std::memset(static_cast<void *>(this), 0, n); }

#define KR_HASH_CLASS(name, algorithm, supportsFips)                                                                   \
  name::name() : kroHashBase(algorithm()) {}                                                                           \
  name::~name() = default;                                                                                             \
  name &name::operator=(const name &) = default;                                                                       \
  name &name::operator=(name &&other) noexcept { return *this = std::as_const(other); }                                \
  const evp_md_st *name::GetEVP_MD() { return algorithm(); }                                                           \
  bool name::SupportsFips() { return supportsFips; }                                                                   \
  void name::__autoclassinit2(std::uint64_t n) { kroHashBase::__autoclassinit2(n); }

KR_HASH_CLASS(kroMD4, krOpenSSL::md4, false)
KR_HASH_CLASS(kroMD5, EVP_md5, false)
KR_HASH_CLASS(kroSHA1, EVP_sha1, true)
KR_HASH_CLASS(kroSHA224, EVP_sha224, true)
KR_HASH_CLASS(kroSHA256, EVP_sha256, true)
KR_HASH_CLASS(kroSHA384, EVP_sha384, true)
KR_HASH_CLASS(kroSHA512, EVP_sha512, true)
