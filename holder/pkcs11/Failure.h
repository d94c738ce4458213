// What went wrong with a token, in one sentence.
#pragma once

#include <new>
#include <stdexcept>
#include <string>

namespace krHolder::pkcs11 {

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// What OpenSSL gave for something that fails for want of memory alone.
template <class Result> Result checked(Result result) {
  if (!result) {
    throw std::bad_alloc();
  }
  return result;
}

} // namespace krHolder::pkcs11
