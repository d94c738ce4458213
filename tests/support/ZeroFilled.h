// An object of a class whose memory is filled with zeros in place of a construction.
#pragma once

#include <memory>
#include <new>

namespace krTest {

/// Has @p use work with such an object, which is destroyed then.
template <class T, class Use> void withZeroFilled(Use use) {
  alignas(T) unsigned char place[sizeof(T)];
  auto *object = std::launder(reinterpret_cast<T *>(place));
  object->__autoclassinit2(sizeof place);
  use(*object);
  std::destroy_at(object);
}

} // namespace krTest
