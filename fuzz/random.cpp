// The engine's random method over a platform whose random source comes and goes and whose process forks: any sequence
// of calls, with any lengths, against what docs/random.md says and the standard's arithmetic.
#include "Fips186_2.h"

#include "engine/qvlibRand.h"
#include "support/FakePlatform.h"

#include <climits>

namespace {

using namespace krFuzz;
namespace fake = krTest::fakePlatform;

constexpr std::size_t kSeedBytes = 64;
constexpr std::size_t kMost = 150;

/// What the method has to do.
class Model {
public:
  bool isSeeded() const { return seeded_; }
  void cleanUp() { seeded_ = false; }
  void fork() { isCopied_ = true; }

  void seed(const Bytes &bytes) {
    renewIfCopied();
    if (!seeded_ && bytes.size() >= kSeedBytes) {
      generator_.init(bytes);
      seeded_ = true;
      return;
    }
    // A seed of the system's own takes nothing in when nothing is given.
    const bool stirs = seeded_ || !bytes.empty();
    seeded_ = seeded_ || initFromSystem();
    if (seeded_ && stirs) {
      generator_.iterate(bytes);
    }
  }

  void add(const Bytes &bytes) {
    renewIfCopied();
    if (seeded_) {
      generator_.iterate(bytes);
    }
  }

  Bytes draw(std::size_t length) {
    renewIfCopied();
    seeded_ = seeded_ || initFromSystem();
    return seeded_ ? generator_.generate(length) : Bytes{};
  }

private:
  // At the next call, and once.
  void renewIfCopied() {
    if (isCopied_) {
      generator_ = {};
      seeded_ = seeded_ && initFromSystem();
    }
    isCopied_ = false;
  }

  bool initFromSystem() {
    if (fake::hasRandom) {
      generator_.init(Bytes(kSeedBytes, static_cast<unsigned char>(++draws_)));
    }
    return fake::hasRandom;
  }

  Fips186_2 generator_;
  bool seeded_ = false;
  bool isCopied_ = false;
  std::size_t draws_ = 0;
};

/// As in a new process.
void startOver() {
  fake::hasRandom = true;
  fake::drawn.clear();
  qvlib_rand_cleanup();
  fake::forkedSilently = true;
}

void fork(Model &model, bool handled) {
  if (handled && fake::childHandler != nullptr) {
    fake::childHandler();
  } else {
    fake::forkedSilently = true;
  }
  model.fork();
}

void seed(Model &model, const Bytes &bytes) {
  require(qvlib_rand_seed(bytes.data(), static_cast<int>(bytes.size())) == 0, "seeding returns 0");
  model.seed(bytes);
}

void add(Model &model, const Bytes &bytes) {
  require(qvlib_rand_add(bytes.data(), static_cast<int>(bytes.size()), 1.0) == 0, "adding returns 0");
  model.add(bytes);
}

void draw(Model &model, std::size_t length) {
  Bytes out(length);
  const bool drawn = qvlib_rand_bytes(out.data(), static_cast<int>(length)) == 1;
  const Bytes expected = model.draw(length);
  require(drawn == model.isSeeded(), "bytes are given once there is a seed");
  require(out == (drawn ? expected : Bytes(length)), "the bytes are the standard's");
}

void misuse(int count) {
  unsigned char byte = 0;
  qvlib_rand_seed(&byte, count);
  qvlib_rand_seed(nullptr, static_cast<int>(kSeedBytes));
  qvlib_rand_add(&byte, count, 1.0);
  require(qvlib_rand_bytes(&byte, count) == 0 && qvlib_rand_bytes(nullptr, 1) == 0, "bad arguments draw nothing");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  startOver();
  Model model;
  while (input.remaining_bytes() > 0) {
    switch (input.ConsumeIntegralInRange(0, 8)) {
    case 0:
      seed(model, takeBytes(input, kMost));
      break;
    case 1:
      add(model, takeBytes(input, kMost));
      break;
    case 2:
      qvlib_rand_cleanup();
      model.cleanUp();
      break;
    case 3:
      fork(model, input.ConsumeBool());
      break;
    case 4:
      fake::hasRandom = !fake::hasRandom;
      break;
    case 5:
      misuse(input.ConsumeIntegralInRange(INT_MIN, -1));
      break;
    default:
      draw(model, input.ConsumeIntegralInRange<std::size_t>(0, kMost));
    }
    require(qvlib_rand_status() == (model.isSeeded() ? 1 : 0), "the status tells whether there is a seed");
  }
  return 0;
}
