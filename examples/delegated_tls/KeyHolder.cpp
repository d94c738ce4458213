// Choosing a holder, and the one that lives in this process.
#include "KeyHolder.h"

#include "ProcessHolder.h"

#include <algorithm>
#include <iterator>

namespace delegated_tls {
namespace {

class MemoryHolder final : public KeyHolder {
public:
  explicit MemoryHolder(std::vector<PrivateKey> keys) : keys_(std::move(keys)) {
    std::ranges::transform(keys_, std::back_inserter(publicHalves_), &PrivateKey::publicHalf);
  }

  std::optional<Bytes> perform(std::size_t key, Operation operation, int padding, const Bytes &data) override {
    return keys_.at(key).perform(operation, padding, data);
  }
  const std::vector<Bytes> &publicHalves() const override { return publicHalves_; }
  std::string name() const override { return "this process"; }

private:
  std::vector<PrivateKey> keys_;
  std::vector<Bytes> publicHalves_;
};

} // namespace

HolderKind defaultHolderKind() { return kProcessHolderAvailable ? HolderKind::process : HolderKind::memory; }

std::unique_ptr<KeyHolder> startHolder(HolderKind kind, const KeyMaker &makeKeys) {
  if (kind == HolderKind::process) {
    return startProcessHolder(makeKeys);
  }
  return std::make_unique<MemoryHolder>(makeKeys());
}

} // namespace delegated_tls
