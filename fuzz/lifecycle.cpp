// Any sequence of the set-up, the engine load, the mode switches and the setters, with what a host may do in between,
// against the state that the headers describe: the mode, the engines that serve OpenSSL, the slots and the random
// method.
#include "Fuzz.h"

#include "state/FipsModule.h"
#include "state/State.h"
#include "support/Engines.h"
#include "support/WolfEngineStandIn.h"

#include <krOpenSSL/krDelegation.h>
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krLifecycle.h>

#include <openssl/err.h>
#include <openssl/rand.h>

#include <dlfcn.h>

#include <array>
#include <set>
#include <string>
#include <string_view>

namespace {

using namespace krFuzz;
using namespace krOpenSSL;
using krTest::kBridge;
using krTest::kFips;
using krTest::kNone;
using krTest::kOrdinary;

int moduleState = 0;
const FipsModule module = [] {
  FipsModule made{};
  made.GetState = [] { return moduleState; };
  made.RngInstantiate = [](auto...) { return 0; };
  made.RngReseed = [](auto...) { return 0; };
  made.RngUninstantiate = [](auto...) { return 0; };
  made.RngGenerate = [](void *, unsigned char *out, FipsModule::Length length) {
    return RAND_OpenSSL()->bytes(out, static_cast<int>(length)) - 1;
  };
  return made;
}();

const RAND_METHOD kHosts{nullptr, RAND_OpenSSL()->bytes, nullptr, nullptr, RAND_OpenSSL()->bytes, [] { return 1; }};

const RAND_METHOD kAny{}; ///< one that OpenSSL chose among mixed engines

/// The random method of the engine that serves, as OpenSSL will choose it.
const RAND_METHOD *methodOf(const char *engines) {
  const std::string id(engines, std::string_view(engines).find(' '));
  const ENGINEPtr engine(id == "-" ? nullptr : ENGINE_by_id(id.c_str()));
  return engine ? ENGINE_get_RAND(engine.get()) : RAND_OpenSSL();
}

/// The callbacks' slots. The clean-up leaves that for decryption.
constexpr std::size_t kDecrypt = 1;
using Slots = std::array<bool, 4>;

void setSlot(std::size_t slot, bool isSet) {
  constexpr RSAPrivateKeyOpCallback kRsa = [](int, const unsigned char *, unsigned char *, RSA *, int) { return -1; };
  if (slot <= kDecrypt) {
    krEngineSetRSAPrivateKeyOpCallback(isSet ? kRsa : nullptr, slot == kDecrypt ? 0 : 1);
  } else if (slot == 2) {
    krEngineSetDSAPrivateKeyOpCallback(isSet ? DSA_do_sign : nullptr);
  } else {
    krEngineSetECDSAPrivateKeyOpCallback(isSet ? ECDSA_do_sign_ex : nullptr);
  }
}

/// What has to be the case. A step is a call, and what it changes here.
class Model {
public:
  explicit Model(Input &input) : input_(input) {}

  void step() {
    using Step = void (Model::*)();
    (this->*input_.PickValueInArray<Step>({&Model::setUp, &Model::cleanUp, &Model::load, &Model::unload,
                                           &Model::switchOn, &Model::switchOff, &Model::draw, &Model::hostActs,
                                           &Model::set, &Model::set}))();
    check();
  }

  /// The process as it was.
  void end() {
    for (; count_ < 0; ++count_) {
      krOSSLSetup();
    }
    for (; count_ > 0; --count_) {
      krOSSLCleanup();
    }
    setFailing(false);
    krFipsClose();
    krOpenSSLEngineUnload();
    krFipsUseOpenSSLFIPS(0);
    RAND_set_rand_method(nullptr);
    for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
      setSlot(slot, false);
    }
  }

private:
  void setUp() {
    require(krOSSLSetup() == 0, "the set-up succeeds");
    if (++count_ == 1) {
      const bool done = !isFips_ || !isChosen_ || krTest::engines() == kFips;
      require(done || isFailing_, "the set-up loads the engine");
      loaded(done);
      look();
    }
  }

  void cleanUp() {
    require(krOSSLCleanup() == 0, "the clean-up returns 0");
    if (count_-- == 1) {
      unloaded();
      slots_ = {false, slots_[kDecrypt], false, false};
    }
  }

  void load() {
    const bool done = krOpenSSLEngineLoad() == 1;
    require(done || (isFips_ && isChosen_ && isFailing_), "an engine is loaded");
    loaded(done);
  }

  void unload() {
    require(krOpenSSLEngineUnload() == 1, "the unload returns 1");
    unloaded();
  }

  void switchOn() {
    const unsigned int result = input_.ConsumeBool() ? krFipsModeOn() : krFipsModeOnEx(input_.ConsumeIntegral<int>());
    if (!isChosen_) {
      require(result == kFipsNotAvailable, "nobody provides FIPS mode");
      return;
    }
    require(result == kFipsOk || (result == kFipsNotAvailable && isFailing_), "FIPS mode is on, or not available");
    const bool wasFips = isFips_;
    lookIfActive();
    swapped(true, result == kFipsOk);
    if (result != kFipsOk) {
      swapped(false, true);
    }
    settle(true, isFips_ != wasFips);
  }

  void switchOff() {
    if (input_.ConsumeBool()) {
      krFipsClose();
      isAttached_ = false;
    } else {
      require(krFipsModeOff() == kFipsOk, "FIPS mode is off");
    }
    const bool wasFips = isFips_;
    lookIfActive();
    swapped(false, true);
    settle(wasFips, wasFips);
  }

  void draw() {
    Bytes bytes(takeBytes(input_, 100));
    const auto length = static_cast<int>(bytes.size());
    if (const int call = input_.ConsumeIntegralInRange(0, 7); call == 1) {
      RAND_seed(bytes.data(), length);
    } else if (call == 2) {
      RAND_add(bytes.data(), length, 1.0);
    } else if (call == 3) {
      ENGINEPtr engine(ENGINE_by_id("qvlib")); // which a host may ask by itself
      ENGINE_get_RAND(engine.get())->cleanup();
    }
    bytes.resize(16);
    const bool drawn = RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1;
    settle();
    require(drawn || method_ == methodOf(kBridge), "there are random numbers");
    require(!drawn || draws_.insert(std::move(bytes)).second, "none comes twice");
  }

  void hostActs() {
    if (input_.ConsumeBool()) {
      method_ = input_.PickValueInArray<const RAND_METHOD *>({nullptr, &kHosts, RAND_OpenSSL()});
      require(RAND_set_rand_method(method_) == 1, "the host may set a method");
    } else {
      ENGINE_register_all_complete();
      engines_ = nullptr;
    }
  }

  void set() {
    const int which = input_.ConsumeIntegralInRange(0, 5);
    const int value = input_.ConsumeIntegralInRange(-2, 5);
    if (which == 0) {
      isChosen_ = value != 0;
      require(krFipsUseOpenSSLFIPS(value) == (isChosen_ ? 1 : 0), "the choice is stored");
    } else if (which == 1) {
      const auto slot = static_cast<std::size_t>(value) % slots_.size();
      slots_.at(slot) = !slots_.at(slot);
      setSlot(slot, slots_.at(slot));
    } else if (which == 2) {
      moduleState = value;
      isAttached_ = input_.ConsumeBool();
      state::fipsModule = isAttached_ ? &module : nullptr;
    } else if (which == 3) {
      const std::string path(takeLength(input_, 300), 'p');
      require(krFipsSetPath(path.c_str()) == (path.size() < 260 ? kFipsOk : kFipsPathTooLong), "a path has room");
    } else if (which == 4) {
      const bool taken = krSetWolfEngineLogLevel(value) == 1;
      require(taken == isWolfEngineActive_, "wolfEngine takes the commands while it is the active engine");
    } else {
      setFailing(value > 0);
    }
  }

  void setFailing(bool fails) {
    isFailing_ = fails;
    ::setenv(krTest::kStandInFails, fails ? "default" : "", 1);
  }

  // What the calls have in common.

  void loaded(bool done) {
    isActive_ = true;
    isWolfEngineActive_ = isFips_ && isChosen_;
    // A load that fails leaves wolfEngine half registered, for the unload.
    engines_ = !done ? nullptr : !isFips_ ? kOrdinary : isChosen_ ? kFips : kBridge;
    const RAND_METHOD *method = done ? look() : nullptr;
    if (method == methodOf(kOrdinary) || method == methodOf(kFips) || method == methodOf(kBridge)) {
      method_ = nullptr;
    }
  }

  void unloaded() {
    engines_ = engines_ != nullptr && isActive_ ? kNone : engines_;
    isActive_ = isWolfEngineActive_ = false;
  }

  void swapped(bool toFips, bool done) {
    unloaded();
    isFips_ = toFips;
    loaded(done);
  }

  /// A switch draws before it swaps, but not without an engine.
  void lookIfActive() { isActive_ ? look() : nullptr; }

  /// OpenSSL keeps the method that it chooses at a first look.
  const RAND_METHOD *look() {
    if (method_ == nullptr) {
      method_ = engines_ != nullptr ? methodOf(engines_) : &kAny;
    }
    return method_;
  }

  /// Looks. OpenSSL's own method is dropped when the mode changes, and may be when the attempt to change it fails.
  void settle(bool mayDrop = false, bool drops = false) {
    const RAND_METHOD *actual = RAND_get_rand_method();
    const bool isDropped = look() == RAND_OpenSSL() && (drops || (mayDrop && actual != method_));
    require(method_ == &kAny || actual == (isDropped ? methodOf(engines_) : method_),
            "random numbers come from the engine that serves, or from what the host has set");
    method_ = actual;
  }

  void check() {
    require(krFipsMode() == (isFips_ ? 1 : 0), "the mode");
    require(krFipsUsingOpenSSLFIPS() == (isChosen_ ? 1 : 0), "the choice");
    require(krFipsGetState() == (isAttached_ ? moduleState : 0), "the module's state");
    require(krFipsModeError() == (isAttached_ && moduleState == 3 ? 1 : 0), "the module's error state");
    require(slots_ == Slots{state::rsaPrivateEncrypt != nullptr, state::rsaPrivateDecrypt != nullptr,
                            state::dsaSign != nullptr, state::ecdsaSign != nullptr},
            "the callbacks");
    require(engines_ == nullptr || krTest::engines() == engines_, "the engines");
    ERR_clear_error();
  }

  Input &input_;
  int count_ = 0;
  bool isFips_ = false;
  bool isChosen_ = false;
  bool isFailing_ = false; // wolfEngine, whenever it is to be initialised anew
  bool isActive_ = false;
  bool isWolfEngineActive_ = false;
  const char *engines_ = kNone;         // that serve OpenSSL; null where the host or a failure has mixed them
  const RAND_METHOD *method_ = nullptr; // that OpenSSL has chosen, if it has
  bool isAttached_ = false;
  Slots slots_{}; // which of them have a callback
  std::set<Bytes> draws_;
};

/// wolfEngine's stand-in and the bridge, listed from the start.
krTest::WolfEngineRecord *listEngines() {
  ::setenv("KR_COMMON_PROGRAM_FILES", KR_FUZZ_MODULES, 1);
  krFipsUseOpenSSLFIPS(1);
  require(krFipsModeOn() == kFipsOk, "wolfEngine's stand-in is there");
  krFipsUseOpenSSLFIPS(0);
  krOpenSSLEngineLoad();
  Input nothing(nullptr, 0);
  Model(nothing).end();
  void *opened = ::dlopen(KR_FUZZ_MODULES "/Corvane/TRVA/wolfEngine.so", RTLD_NOW | RTLD_NOLOAD);
  return static_cast<krTest::WolfEngineRecord *>(::dlsym(opened, "standInRecord"));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static krTest::WolfEngineRecord *const record = listEngines();
  Input input(data, size);
  Model model(input);
  takeSteps(input, [&] { model.step(); });
  model.end();
  record->commands.clear();
  return 0;
}
