// Choosing a holder, and the one that lives in this process.
#include "KeyHolder.h"

#include "ProcessHolder.h"

#include <algorithm>
#include <future>
#include <iterator>

namespace delegated_tls {
namespace {

class MemoryHolder final : public KeyHolder {
public:
  explicit MemoryHolder(std::vector<PrivateKey> keys) : keys_(std::move(keys)) {
    std::ranges::transform(keys_, std::back_inserter(publicHalves_), &PrivateKey::publicHalf);
  }

  void ask(std::size_t key, Operation operation, int padding, const Bytes &data, Answer answer) override {
    answer(keys_.at(key).perform(operation, padding, data));
  }
  const std::vector<Bytes> &publicHalves() const override { return publicHalves_; }
  std::string name() const override { return "this process"; }

private:
  std::vector<PrivateKey> keys_;
  std::vector<Bytes> publicHalves_;
};

} // namespace

std::optional<Bytes> HeldKey::perform(Operation operation, int padding, const Bytes &data) {
  std::promise<std::optional<Bytes>> promise;
  ask(operation, padding, data, [&promise](std::optional<Bytes> result) { promise.set_value(std::move(result)); });
  return promise.get_future().get();
}

HolderKind defaultHolderKind() { return kProcessHolderAvailable ? HolderKind::process : HolderKind::memory; }

std::unique_ptr<KeyHolder> startHolder(HolderKind kind, const KeyMaker &makeKeys) {
  if (kind == HolderKind::process) {
    return startProcessHolder(makeKeys);
  }
  return std::make_unique<MemoryHolder>(makeKeys());
}

} // namespace delegated_tls
