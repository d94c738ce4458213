// Switching FIPS mode: an engine swap, with random bytes carried over it.
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include "engine/EngineList.h"
#include "fips/ActiveEngine.h"
#include "fips/ModulePlace.h"
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
  return krOpenSSLEngineLoad();
}

// Without an engine a first draw has OpenSSL settle for its own random method.
bool mayDraw() noexcept { return activeEngine.load(std::memory_order_acquire) != nullptr; }

// What OpenSSL settled for in FIPS mode is not ordinary mode's.
void swapToOrdinary(bool leaving) noexcept {
  if (swapEngines(0) != 0 && leaving) {
    dropBuiltInRandomMethod();
  }
}

void goOrdinary(bool leaving, bool draws) noexcept {
  if (!draws) {
    swapToOrdinary(leaving);
    CarryOver().seed();
    return;
  }
  const CarryOver carryOver;
  swapToOrdinary(leaving);
  carryOver.seed();
}

} // namespace

unsigned int krFipsModeOnEx(int /*unused*/) {
  if (krFipsUsingOpenSSLFIPS() == 0) {
    return kFipsNotAvailable;
  }
  const bool wasOn = krFipsMode() != 0;
  // Drawn, but not given to the FIPS provider: what it is seeded with is its own affair.
  const bool draws = mayDraw();
  if (draws) {
    const CarryOver unused;
  }
  if (swapEngines(1) == 0) {
    goOrdinary(wasOn, draws);
    return kFipsNotAvailable;
  }
  if (!wasOn) {
    dropBuiltInRandomMethod();
  }
  return kFipsOk;
}

unsigned int krFipsModeOn() { return krFipsModeOnEx(0); }

unsigned int krFipsModeOff() {
  goOrdinary(krFipsMode() != 0, mayDraw());
  return kFipsOk;
}

void krFipsClose() {
  krFipsModeOff();
  state::fipsModule.store(nullptr, std::memory_order_release);
  if (void *module = fipsModuleHandle.exchange(nullptr); module != nullptr) {
    platform::freeModule(module);
  }
}
