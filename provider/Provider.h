// One loaded provider: what libcrypto gave it, its settings, and its ways to key holders.
#pragma once

#include "Handles.h"
#include "Reasons.h"
#include "client/Client.h"

#include <openssl/core_dispatch.h>

#include <map>
#include <mutex>

namespace krProvider {

/// Read once, when the provider is loaded: never from a process that has changed its user since.
struct Settings {
  std::string socket = krHolder::ClientOptions().socket; ///< for references that name none
  std::chrono::milliseconds deadline = krHolder::ClientOptions().patience;
  bool fips = false; ///< the holder runs in FIPS mode, says the administrator: algorithms have the property fips=yes
};

class Provider {
public:
  /// Takes what libcrypto gives; nothing of it can fail.
  Provider(const OSSL_CORE_HANDLE *handle, const OSSL_DISPATCH *in) noexcept;

  /// A bad setting is told where a key is read: that the provider is not loaded no program would tell.
  /// @throws Raised, std::bad_alloc
  void start(const OSSL_DISPATCH *in);

  const Settings &settings() const noexcept { return settings_; }

  /// A library context with the providers of the program, for what can be done without the private key.
  OSSL_LIB_CTX *library() const noexcept { return library_.get(); }

  /// The keys of one holder share their connections.
  /// @param socket  empty: as the settings have it
  /// @throws Failure for a bad setting, std::bad_alloc
  std::shared_ptr<krHolder::Client> client(const std::string &socket);

  /// Adds an error to libcrypto's queue.
  void raise(Reason reason, const char *detail) const noexcept;

private:
  void readSettings();
  void setError(Reason reason, const char *format, ...) const noexcept;

  const OSSL_CORE_HANDLE *handle_;
  OSSL_FUNC_core_get_params_fn *getParams_ = nullptr;
  OSSL_FUNC_core_new_error_fn *newError_ = nullptr;
  OSSL_FUNC_core_vset_error_fn *vsetError_ = nullptr;
  Settings settings_;
  std::string badSetting_; // what is wrong, or empty
  LibraryPtr library_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<krHolder::Client>> clients_;
};

/// Adds the error of the exception that is being handled.
void explain(const Provider &provider) noexcept;

/// The C boundary: no exception crosses it.
/// @return what the work returns, or zero with an error in libcrypto's queue
template <class Work> auto guarded(const Provider &provider, Work work) noexcept -> decltype(work()) {
  try {
    return work();
  } catch (...) {
    explain(provider);
    return {};
  }
}

/// A row of a table of functions that libcrypto gets; Function is the type it has for the row.
template <class Function> OSSL_DISPATCH row(int id, Function *function) noexcept {
  return {id, reinterpret_cast<void (*)(void)>(function)};
}

} // namespace krProvider
