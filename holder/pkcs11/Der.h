// The DER form of OpenSSL's objects.
#pragma once

#include "Failure.h"
#include "wire/Wiping.h"

namespace krHolder::pkcs11 {

/// @p encode is the object's i2d function.
template <class Object, class Encode> Bytes derOf(Object *object, Encode encode) {
  const int length = encode(object, nullptr);
  Bytes der(static_cast<std::size_t>(length > 0 ? length : 0));
  unsigned char *cursor = der.data();
  checked(length > 0 && encode(object, &cursor) > 0);
  return der;
}

} // namespace krHolder::pkcs11
