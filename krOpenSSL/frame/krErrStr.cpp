// Texts of OpenSSL's error codes.
#include <krOpenSSL/krInformation.h>

#include "engine/EngineList.h"

#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t kMaxTextLength = 511;

// "error:", eight or more digits, three colons, and "lib(n)" and the like where a name is unknown.
constexpr std::size_t kFixedTextBytes = 256;

std::size_t lengthOf(const char *text) noexcept { return text != nullptr ? std::strlen(text) : 0; }

// ERR_error_string_n falls back to bare numbers when the text does not fit its buffer.
std::size_t sufficientBytes(unsigned long code) noexcept {
  return kFixedTextBytes + lengthOf(ERR_lib_error_string(code)) + lengthOf(ERR_func_error_string(code)) +
         lengthOf(ERR_reason_error_string(code));
}

// Once OpenSSL has been cleaned up its names are gone, with the lock that guards them: what it writes without names.
std::string bareText(unsigned long code) {
  constexpr bool kHasFunction = OPENSSL_VERSION_NUMBER < 0x30000000L;
  const std::string function = kHasFunction ? "func(" + std::to_string(code >> 12U & 0xfffU) + ")" : "";
  std::array<char, kFixedTextBytes> text;
  const int length = std::snprintf(text.data(), text.size(), "error:%08lX:lib(%d):%s:reason(%d)", code,
                                   ERR_GET_LIB(code), function.c_str(), ERR_GET_REASON(code));
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string errorText(unsigned long code) {
  std::string text(sufficientBytes(code), '\0');
  ERR_error_string_n(code, text.data(), text.size());
  text.resize(std::min(std::strlen(text.c_str()), kMaxTextLength));
  return text;
}

} // namespace

namespace krOpenSSL {

const std::string errStr(unsigned long code) {
  try {
    if (!opensslIsUsable()) {
      return bareText(code); // nor is there a queue
    }
    return errorText(code != 0 ? code : ERR_get_error());
  } catch (const std::bad_alloc &) {
    return {};
  }
}

} // namespace krOpenSSL
