#include "support/FakePlatform.h"

#include "platform/Platform.h"

#include <algorithm>

namespace krTest::fakePlatform {

Bytes systemBytes(std::size_t call) { return Bytes(drawn.at(call - 1), static_cast<unsigned char>(call)); }

} // namespace krTest::fakePlatform

namespace krOpenSSL::platform {

namespace fake = krTest::fakePlatform;

bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept {
  if (fake::hasRandom) {
    fake::drawn.push_back(length);
    std::fill_n(buffer, length, static_cast<unsigned char>(fake::drawn.size()));
  }
  return fake::hasRandom;
}

bool watchForks(void (*inChild)()) noexcept {
  if (fake::noticesForks) {
    fake::childHandler = inChild;
    ++fake::watchers;
  }
  return fake::noticesForks;
}

std::int64_t processId() noexcept { return fake::process; }

} // namespace krOpenSSL::platform
