// The HMAC template and its seven instantiations.
#include <krOpenSSL/kroHMAC.h>

#include "FipsWay.h"
#include "Lengths.h"
#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"

#include <openssl/crypto.h>
#include <openssl/hmac.h>

#include <cstring>

using namespace krOpenSSL;

namespace {

template <class T> constexpr const char *kConstructor = nullptr;
template <> constexpr const char *kConstructor<kroMD4> = "kroHMAC<class kroMD4>::kroHMAC";
template <> constexpr const char *kConstructor<kroMD5> = "kroHMAC<class kroMD5>::kroHMAC";
template <> constexpr const char *kConstructor<kroSHA1> = "kroHMAC<class kroSHA1>::kroHMAC";
template <> constexpr const char *kConstructor<kroSHA224> = "kroHMAC<class kroSHA224>::kroHMAC";
template <> constexpr const char *kConstructor<kroSHA256> = "kroHMAC<class kroSHA256>::kroHMAC";
template <> constexpr const char *kConstructor<kroSHA384> = "kroHMAC<class kroSHA384>::kroHMAC";
template <> constexpr const char *kConstructor<kroSHA512> = "kroHMAC<class kroSHA512>::kroHMAC";

// OpenSSL reads a null key as "keep the one you have": the empty key needs an address.
constexpr unsigned char kEmptyKey = 0;

// The module takes lengths as signed 32-bit numbers, sign-extended.
FipsModule::Length moduleLength(std::uint64_t length) noexcept { return static_cast<std::int32_t>(length); }

} // namespace

// Work on the OpenSSL way, beside the class so that it is not exported with it.
template <class T> struct kroHMAC<T>::Context {
  static OpenSSLState make() noexcept {
    const OpenSSLState made{krHMAC_CTX_new(), Phase::unkeyed};
    if (made.context == nullptr) {
      krTraceLog(kTraceTag, "%s: Unable to allocate memory for HMAC_CTX", kConstructor<T>);
    } else {
      HMAC_CTX_set_flags(made.context, EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
    }
    return made;
  }

  static void dropKey(OpenSSLState &state) noexcept {
    state.phase = Phase::unkeyed;
    if (state.context != nullptr) {
      HMAC_CTX_reset(state.context);
      HMAC_CTX_set_flags(state.context, EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
    }
  }

  // OpenSSL refuses to copy a context without a key: such a copy stays without one.
  static void copy(OpenSSLState &state, const OpenSSLState &other) noexcept {
    const bool keyed = state.context != nullptr && other.phase != Phase::unkeyed;
    const ErrorQueueScope errors;
    if (keyed && HMAC_CTX_copy(state.context, other.context) == 1) {
      state.phase = other.phase;
    } else {
      dropKey(state);
    }
  }
};

template <class T> kroHMAC<T>::kroHMAC() : viaModule_(T::SupportsFips() && worksViaModule()) {
  if (viaModule_) {
    OPENSSL_cleanse(area_, kStateBytes);
  } else {
    openssl_ = Context::make();
  }
}

template <class T> kroHMAC<T>::kroHMAC(const kroHMAC &other) : viaModule_(other.viaModule_) {
  if (viaModule_) {
    std::memcpy(area_, other.area_, kStateBytes);
  } else {
    openssl_ = Context::make();
    Context::copy(openssl_, other.openssl_);
  }
}

template <class T> kroHMAC<T>::~kroHMAC() {
  if (viaModule_) {
    if (const FipsModule *module = readyModule()) {
      module->HmacFree(area_);
    }
    return;
  }
  krHMAC_CTX_cleanup(openssl_.context);
  openssl_.context = nullptr;
}

template <class T> kroHMAC<T> &kroHMAC<T>::operator=(const kroHMAC &other) {
  if (this == &other) {
    return *this;
  }
  if (!other.viaModule_) {
    if (viaModule_ || openssl_.context == nullptr) {
      viaModule_ = false;
      openssl_ = Context::make();
    }
    Context::copy(openssl_, other.openssl_);
    return *this;
  }
  if (!viaModule_) {
    krHMAC_CTX_cleanup(openssl_.context);
  }
  viaModule_ = true;
  std::memcpy(area_, other.area_, kStateBytes);
  return *this;
}

template <class T> void kroHMAC<T>::Init() {
  if (viaModule_) {
    if (const FipsModule *module = readyModule()) {
      module->HmacInit(fipsModuleContext, area_, kStateBytes, EVP_MD_size(T::GetEVP_MD()));
    }
    return;
  }
  if (openssl_.phase != Phase::unkeyed) {
    const bool begun = HMAC_Init_ex(openssl_.context, nullptr, 0, T::GetEVP_MD(), nullptr) == 1;
    openssl_.phase = begun ? Phase::computing : Phase::unkeyed;
  }
}

template <class T> void kroHMAC<T>::SetKey(const unsigned char *key, std::uint64_t len) {
  if (viaModule_) {
    if (const FipsModule *module = readyModule()) {
      module->HmacSetKey(area_, key, moduleLength(len));
    }
    return;
  }
  const auto length = intLength(len);
  if (openssl_.context == nullptr || !length || !isReadable(key, len)) {
    Context::dropKey(openssl_);
    return;
  }
  const unsigned char *bytes = key != nullptr ? key : &kEmptyKey;
  if (HMAC_Init_ex(openssl_.context, bytes, *length, T::GetEVP_MD(), nullptr) == 1) {
    openssl_.phase = Phase::computing;
  } else {
    Context::dropKey(openssl_);
  }
}

template <class T> void kroHMAC<T>::Update(const unsigned char *data, std::uint64_t len) {
  if (viaModule_) {
    if (const FipsModule *module = readyModule()) {
      module->HmacUpdate(area_, data, moduleLength(len));
    }
    return;
  }
  if (openssl_.phase != Phase::computing) {
    return;
  }
  // A MAC over only some of the data must never come out.
  if (!intLength(len) || !isReadable(data, len) || HMAC_Update(openssl_.context, data, len) != 1) {
    openssl_.phase = Phase::keyed;
  }
}

template <class T> void kroHMAC<T>::Final(unsigned char *out) {
  if (viaModule_) {
    if (const FipsModule *module = readyModule()) {
      module->HmacFinal(area_, out);
    }
    return;
  }
  if (openssl_.phase != Phase::computing) {
    return;
  }
  if (out != nullptr) {
    HMAC_Final(openssl_.context, out, nullptr);
  }
  openssl_.phase = Phase::keyed;
}

template <class T>
void kroHMAC<T>::operator()(const unsigned char *key, std::uint64_t keylen, const unsigned char *data,
                            std::uint64_t len, unsigned char *out) {
  Init();
  SetKey(key, keylen);
  Update(data, len);
  Final(out);
}

template <class T> void kroHMAC<T>::__autoclassinit2(std::uint64_t n) { std::memset(static_cast<void *>(this), 0, n); }

template class kroHMAC<kroMD4>;
template class kroHMAC<kroMD5>;
template class kroHMAC<kroSHA1>;
template class kroHMAC<kroSHA224>;
template class kroHMAC<kroSHA256>;
template class kroHMAC<kroSHA384>;
template class kroHMAC<kroSHA512>;
