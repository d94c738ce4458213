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

} // namespace krFuzz
