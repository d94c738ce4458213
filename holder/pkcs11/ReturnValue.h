// What PKCS#11 functions return, as failures with the standard's names.
#pragma once

#include "Failure.h"

#include <p11-kit/pkcs11.h>

namespace krHolder::pkcs11 {

/// A PKCS#11 function failed: "WHAT: CKR_TOKEN_NOT_PRESENT".
struct TokenFailure : Failure {
  TokenFailure(const std::string &what, CK_RV returned);

  CK_RV value;
};

/// Throws a TokenFailure unless the function returned CKR_OK.
void require(CK_RV returned, const char *what);

/// "CKR_PIN_INCORRECT"; "return value 0x80000001" for one without a name here.
std::string nameOf(CK_RV value);

} // namespace krHolder::pkcs11
