// A PKCS#11 module: the shared library, initialised for the life of the object.
#pragma once

#include <p11-kit/pkcs11.h>

#include <memory>
#include <string>

namespace delegated_tls::pkcs11 {

class Module {
public:
  explicit Module(const std::string &path);
  ~Module();
  Module(const Module &) = delete;
  Module &operator=(const Module &) = delete;

  const CK_FUNCTION_LIST *operator->() const { return functions_; }

private:
  struct Unload {
    void operator()(void *library) const noexcept;
  };

  std::unique_ptr<void, Unload> library_;
  CK_FUNCTION_LIST *functions_ = nullptr;
};

} // namespace delegated_tls::pkcs11
