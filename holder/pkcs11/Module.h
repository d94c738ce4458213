// A PKCS#11 module: the shared library, and its initialised state, which can be begun anew.
#pragma once

#include <p11-kit/pkcs11.h>

#include <memory>
#include <mutex>
#include <string>

namespace krHolder::pkcs11 {

/// The module's code, loaded for the life of the object.
class SharedLibrary {
public:
  explicit SharedLibrary(const std::string &path);

  CK_FUNCTION_LIST *functions() const { return functions_; }

private:
  struct Unload {
    void operator()(void *library) const noexcept;
  };

  std::unique_ptr<void, Unload> library_;
  CK_FUNCTION_LIST *functions_ = nullptr;
};

/// The module, initialised for the life of the object: one at a time.
class Module {
public:
  explicit Module(const SharedLibrary &library);
  ~Module();
  Module(const Module &) = delete;
  Module &operator=(const Module &) = delete;

  const CK_FUNCTION_LIST *operator->() const { return functions_; }

private:
  CK_FUNCTION_LIST *functions_;
};

/// A module as the tokens in it share it.
class SharedModule {
public:
  explicit SharedModule(const std::string &path) : library_(path), module_(std::make_shared<const Module>(library_)) {}

  /// The module of this path: there is one in a process, since it is initialised once.
  static std::shared_ptr<SharedModule> at(const std::string &path);

  /// For whoever opens a session or changes the rest: sessions are opened under it only.
  std::mutex &mutex() const { return mutex_; }

  /// What each session has a share of.
  const std::shared_ptr<const Module> &module();

  /// Says that a session was lost, or was not. Modules exist that see a token that comes back only when they are
  /// initialised anew.
  void setLost(bool lost) { lost_ = lost; }

  /// Initialises it anew when a session was lost and none is open: when no other share is left, none can come.
  void startAnewIfLost();

private:
  const SharedLibrary library_;
  std::shared_ptr<const Module> module_;
  mutable std::mutex mutex_;
  bool lost_ = false;
};

} // namespace krHolder::pkcs11
