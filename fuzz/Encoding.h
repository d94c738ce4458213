// The DER encoding of OpenSSL's objects, to compare them by.
#pragma once

#include "Fuzz.h"

#include <krOpenSSL/krHandles.h>

namespace krFuzz {

/// The encoding of an object, empty for none. The object goes.
template <auto Encode, auto Free, class Object> Bytes encodingOf(Object *object) {
  const krOpenSSL::Handle<Object, Free> owner(object);
  Bytes encoding;
  if (object != nullptr) {
    encoding.resize(static_cast<std::size_t>(Encode(object, nullptr)));
    unsigned char *end = encoding.data();
    Encode(object, &end);
  }
  return encoding;
}

/// The encoding of a DSA or ECDSA signature of two numbers, each one half of the bytes.
inline Bytes encodedSignature(const Bytes &numbers) {
  const auto half = static_cast<int>(numbers.size() / 2);
  DSA_SIG *signature = DSA_SIG_new();
  DSA_SIG_set0(signature, BN_bin2bn(numbers.data(), half, nullptr), BN_bin2bn(numbers.data() + half, half, nullptr));
  return encodingOf<i2d_DSA_SIG, DSA_SIG_free>(signature);
}

} // namespace krFuzz
