// The HMAC template and its seven instantiations.
#include <krOpenSSL/kroHMAC.h>

#include "Lengths.h"
#include "Usable.h"
#include "accessors/ErrorQueueScope.h"
#include "accessors/krAccessors.h"
#include "accessors/krTraceLog.h"
#include "state/FipsState.h"

#include <openssl/crypto.h>
#include <openssl/hmac.h>

#include <cstring>
#include <optional>

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

} // namespace

// Work of the members, beside the class so that it is not exported with it.
template <class T> struct kroHMAC<T>::Context {
  static void make(kroHMAC &hmac) noexcept {
    hmac.viaModule_ = false;
    hmac.phase_ = Phase::unkeyed;
    hmac.context_ = krHMAC_CTX_new();
    if (hmac.context_ == nullptr) {
      krTraceLog(kTraceTag, "%s: Unable to allocate memory for HMAC_CTX", kConstructor<T>);
    } else {
      HMAC_CTX_set_flags(hmac.context_, EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
    }
  }

  static void dropKey(kroHMAC &hmac) noexcept {
    hmac.phase_ = Phase::unkeyed;
    if (!hmac.viaModule_ && hmac.context_ != nullptr) {
      HMAC_CTX_reset(hmac.context_);
      HMAC_CTX_set_flags(hmac.context_, EVP_MD_CTX_FLAG_NON_FIPS_ALLOW);
    }
  }

  // OpenSSL refuses to copy a context without a key: such a copy stays without one.
  static void copy(kroHMAC &hmac, const kroHMAC &other) noexcept {
    const bool keyed = hmac.context_ != nullptr && other.phase_ != Phase::unkeyed;
    const ErrorQueueScope errors;
    if (keyed && HMAC_CTX_copy(hmac.context_, other.context_) == 1) {
      hmac.phase_ = other.phase_;
    } else {
      dropKey(hmac);
    }
  }

  static void copyArea(kroHMAC &hmac, const kroHMAC &other) noexcept {
    hmac.viaModule_ = true;
    hmac.phase_ = other.phase_;
    std::memcpy(hmac.area_, other.area_, kStateBytes);
  }

  static void release(kroHMAC &hmac) noexcept {
    if (!hmac.viaModule_) {
      krHMAC_CTX_cleanup(hmac.context_);
      hmac.context_ = nullptr;
      return;
    }
    if (const FipsModule *module = readyModule()) {
      module->HmacFree(hmac.area_);
    }
    OPENSSL_cleanse(hmac.area_, kStateBytes); // a module that is not ready any more cannot do it
  }

  // Who works for the object: the module, OpenSSL (null), or nobody while the module is not ready.
  static std::optional<const FipsModule *> worker(const kroHMAC &hmac) noexcept {
    const FipsModule *module = hmac.viaModule_ ? readyModule() : nullptr;
    return hmac.viaModule_ && module == nullptr ? std::nullopt : std::optional(module);
  }

  static bool setKey(kroHMAC &hmac, const FipsModule *module, const unsigned char *key, std::uint64_t len) noexcept {
    const auto length = intLength(len);
    if (!length || !isReadable(key, len)) {
      return false;
    }
    if (module != nullptr) {
      module->HmacSetKey(hmac.area_, key, *length);
      return true;
    }
    const unsigned char *bytes = key != nullptr ? key : &kEmptyKey;
    return hmac.context_ != nullptr && canBegin() &&
           HMAC_Init_ex(hmac.context_, bytes, *length, T::GetEVP_MD(), nullptr) == 1;
  }

  static bool update(kroHMAC &hmac, const FipsModule *module, const unsigned char *data, std::uint64_t len) noexcept {
    const auto length = intLength(len);
    if (!length || !isReadable(data, len)) {
      return false;
    }
    if (module != nullptr) {
      module->HmacUpdate(hmac.area_, data, *length);
      return true;
    }
    return HMAC_Update(hmac.context_, data, len) == 1;
  }
};

template <class T> kroHMAC<T>::kroHMAC() : viaModule_(T::SupportsFips() && worksViaModule()), phase_(Phase::computing) {
  if (viaModule_) {
    OPENSSL_cleanse(area_, kStateBytes);
  } else {
    Context::make(*this);
  }
}

template <class T> kroHMAC<T>::kroHMAC(const kroHMAC &other) : viaModule_(other.viaModule_), phase_(other.phase_) {
  if (viaModule_) {
    Context::copyArea(*this, other);
  } else {
    Context::make(*this);
    Context::copy(*this, other);
  }
}

template <class T> kroHMAC<T>::~kroHMAC() { Context::release(*this); }

template <class T> kroHMAC<T> &kroHMAC<T>::operator=(const kroHMAC &other) {
  if (this == &other) {
    return *this;
  }
  if (other.viaModule_) {
    if (!viaModule_) {
      Context::release(*this);
    }
    Context::copyArea(*this, other);
    return *this;
  }
  if (viaModule_) {
    Context::release(*this);
    Context::make(*this);
  } else if (context_ == nullptr) {
    Context::make(*this);
  }
  Context::copy(*this, other);
  return *this;
}

template <class T> void kroHMAC<T>::Init() {
  const auto module = Context::worker(*this);
  if (!module) {
    return;
  }
  if (*module != nullptr) {
    (*module)->HmacInit(fipsModuleContext, area_, kStateBytes, EVP_MD_size(T::GetEVP_MD()));
    phase_ = phase_ == Phase::keyed ? Phase::computing : phase_;
  } else if (phase_ != Phase::unkeyed) {
    const bool begun = HMAC_Init_ex(context_, nullptr, 0, T::GetEVP_MD(), nullptr) == 1;
    phase_ = begun ? Phase::computing : Phase::unkeyed;
  }
}

template <class T> void kroHMAC<T>::SetKey(const unsigned char *key, std::uint64_t len) {
  const auto module = Context::worker(*this);
  if (!module) {
    phase_ = Phase::unkeyed; // a MAC under another key than this must never come out
    return;
  }
  if (Context::setKey(*this, *module, key, len)) {
    phase_ = Phase::computing;
  } else {
    Context::dropKey(*this);
  }
}

template <class T> void kroHMAC<T>::Update(const unsigned char *data, std::uint64_t len) {
  if (phase_ != Phase::computing) {
    return;
  }
  const auto module = Context::worker(*this);
  // A MAC without what was refused, or came while the module was not ready, must never come out.
  if (!module || !Context::update(*this, *module, data, len)) {
    phase_ = Phase::keyed;
  }
}

template <class T> void kroHMAC<T>::Final(unsigned char *out) {
  const auto module = phase_ == Phase::computing ? Context::worker(*this) : std::nullopt;
  if (!module) {
    return;
  }
  if (*module != nullptr && out != nullptr) {
    (*module)->HmacFinal(area_, out); // what comes next is the module's to judge
    return;
  }
  if (out != nullptr) {
    HMAC_Final(context_, out, nullptr);
  }
  phase_ = Phase::keyed;
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
