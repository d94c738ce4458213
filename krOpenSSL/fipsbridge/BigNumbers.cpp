// Export of big numbers to the FIPS module, and reading them back.
#include "fipsbridge/BigNumbers.h"

#include <openssl/crypto.h>

namespace krOpenSSL {

bool WipedBytes::allocate(FipsModule::Length size) noexcept {
  data_ = size > 0 ? static_cast<unsigned char *>(OPENSSL_zalloc(static_cast<std::size_t>(size))) : nullptr;
  size_ = data_ != nullptr ? size : 0;
  return data_ != nullptr;
}

int ExportedNumber::take(const BIGNUM *number) noexcept {
  if (number == nullptr) {
    return 0;
  }
  const int length = BN_num_bytes(number);
  if (length == 0) {
    return kNothingToLoad;
  }
  if (!bytes_.allocate(length)) {
    return kNoMemoryToLoad;
  }
  return BN_bn2bin(number, bytes_.data()) > 0 ? 0 : kNothingToLoad;
}

int exportNumbers(std::initializer_list<NumberExport> numbers) noexcept {
  for (const auto &[to, from] : numbers) {
    if (const int code = to.take(from); code != 0) {
      return code;
    }
  }
  return 0;
}

bool ReturnedNumber::allocate(FipsModule::Length capacity) noexcept {
  length_ = capacity;
  return bytes_.allocate(capacity);
}

BIGNUMPtr ReturnedNumber::number(const BIGNUM *like) const noexcept {
  const int protection = like != nullptr ? BN_get_flags(like, BN_FLG_SECURE | BN_FLG_CONSTTIME) : 0;
  BIGNUMPtr number((protection & BN_FLG_SECURE) != 0 ? BN_secure_new() : BN_new());
  const bool plausible = length_ >= 0 && length_ <= bytes_.size();
  if (!plausible || !number || BN_bin2bn(bytes_.data(), static_cast<int>(length_), number.get()) == nullptr) {
    return nullptr;
  }
  BN_set_flags(number.get(), protection & BN_FLG_CONSTTIME);
  return number;
}

} // namespace krOpenSSL
