// Switching FIPS mode: an engine swap, with random bytes carried over it.
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include "engine/EngineList.h"
#include "fips/RandomMethod.h"
#include "platform/Platform.h"
#include "state/State.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <array>

using namespace krOpenSSL;

namespace {

/// Output of the random method that is in force when it is made. Zeros when that method had none to give;
/// those are never seeded.
class CarryOver {
public:
  CarryOver() noexcept : drawn_(draw()) {}
  ~CarryOver() { OPENSSL_cleanse(bytes_.data(), bytes_.size()); }
  CarryOver(const CarryOver &) = delete;
  CarryOver &operator=(const CarryOver &) = delete;

  void seed() const noexcept {
    if (drawn_) {
      RAND_seed(bytes_.data(), kBytes);
    }
  }

private:
  static constexpr int kBytes = 64;

  bool draw() noexcept { return opensslIsUsable() && RAND_bytes(bytes_.data(), kBytes) == 1; }

  std::array<unsigned char, kBytes> bytes_{};
  bool drawn_;
};

// The unload looks at the mode that is left, the load at the one that is entered.
int swapEngines(int mode) noexcept {
  krOpenSSLEngineUnload();
  state::fipsMode.store(mode, std::memory_order_release);
  const int loaded = krOpenSSLEngineLoad();
  if (loaded != 0) {
    dropBuiltInRandomMethod();
  }
  return loaded;
}

} // namespace

unsigned int krFipsModeOnEx(int /*unused*/) {
  if (krFipsUsingOpenSSLFIPS() == 0) {
    return kFipsNotAvailable;
  }
  // Drawn, but not given to the FIPS provider: what it is seeded with is its own affair.
  const CarryOver carryOver;
  if (swapEngines(1) != 0) {
    return kFipsOk;
  }
  krFipsModeOff();
  return kFipsNotAvailable;
}

unsigned int krFipsModeOn() { return krFipsModeOnEx(0); }

unsigned int krFipsModeOff() {
  const CarryOver carryOver;
  swapEngines(0);
  carryOver.seed();
  return kFipsOk;
}

void krFipsClose() {
  krFipsModeOff();
  state::fipsModule.store(nullptr, std::memory_order_release);
  if (void *module = state::fipsModuleHandle.exchange(nullptr); module != nullptr) {
    platform::freeModule(module);
  }
}
