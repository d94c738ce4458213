// The server's half of a TLS key exchange by RSA: no step depends on what was decrypted.
#include "Premaster.h"

namespace krHolder {

namespace {

// All ones for zero, else 0; of 16 bits at most.
unsigned isZero(unsigned value) noexcept { return 0U - ((value - 1) >> 31U); }
unsigned isVersion(unsigned found, unsigned wanted) noexcept { return isZero(found ^ wanted); }

} // namespace

Bytes premasterOf(View block, std::uint16_t clientVersion, std::uint16_t otherVersion,
                  std::span<const unsigned char, kPremasterBytes> random) {
  const View secret = block.last(kPremasterBytes);
  const View padding = block.first(block.size() - kPremasterBytes); // 0, 2, at least 8 bytes that are not 0, 0
  unsigned good = isZero(padding[0]) & isZero(padding[1] ^ 2U) & isZero(padding.back());
  for (const unsigned byte : padding.subspan(2, padding.size() - 3)) {
    good &= ~isZero(byte);
  }
  const unsigned version = static_cast<unsigned>(secret[0] << 8U) | secret[1];
  const unsigned otherGiven = ~isZero(otherVersion);
  const unsigned anyWill = isZero(clientVersion ^ kAnyVersion);
  good &= isVersion(version, clientVersion) | (isVersion(version, otherVersion) & otherGiven) | anyWill;
  Bytes chosen(kPremasterBytes);
  for (std::size_t i = 0; i < chosen.size(); ++i) {
    chosen[i] = static_cast<unsigned char>((secret[i] & good) | (random[i] & ~good));
  }
  return chosen;
}

} // namespace krHolder
