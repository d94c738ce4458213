// A PKCS#11 module: the shared library, and its initialised state, which can be begun anew.
#pragma once

#include <p11-kit/pkcs11.h>

#include <memory>
#include <string>

namespace delegated_tls::pkcs11 {

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

} // namespace delegated_tls::pkcs11
