// The key holder: whoever has the private keys, seen from the program that does TLS.
#pragma once

#include "PrivateKey.h"

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace delegated_tls {

/// Several threads may use one holder at once.
class KeyHolder {
public:
  virtual ~KeyHolder() = default;

  /// Gets the result, or nothing when the holder cannot, or is gone. Called once, on whatever thread has it.
  using Answer = std::function<void(std::optional<Bytes>)>;

  /// Has key number @p key carry out the operation, and has the answer given when it is there: perhaps at once.
  virtual void ask(std::size_t key, Operation operation, int padding, const Bytes &data, Answer answer) = 0;

  /// The keys' public halves (SubjectPublicKeyInfo), in the order of their numbers.
  virtual const std::vector<Bytes> &publicHalves() const = 0;

  /// Who the holder is, for people: "process 4711".
  virtual std::string name() const = 0;

  /// Why it carried out nothing, asked right after that, for people: "the key holder, process 4711, was killed by
  /// signal 9".
  virtual std::string trouble() const { return "the key holder, " + name() + ", refused"; }
};

/// One key of a holder, counting what it was asked for.
class HeldKey {
public:
  HeldKey(KeyHolder &holder, std::size_t number) : holder_(holder), number_(number) {}

  void ask(Operation operation, int padding, const Bytes &data, KeyHolder::Answer answer) {
    operations_.fetch_add(1);
    holder_.ask(number_, operation, padding, data, std::move(answer));
  }

  /// The same, with the thread waiting for the answer.
  std::optional<Bytes> perform(Operation operation, int padding, const Bytes &data);

  const Bytes &publicHalf() const { return holder_.publicHalves().at(number_); }
  std::string holderName() const { return holder_.name(); }
  std::string trouble() const { return holder_.trouble(); }
  unsigned operations() const { return operations_.load(); }

private:
  KeyHolder &holder_;
  std::size_t number_;
  std::atomic<unsigned> operations_{0};
};

/// Makes the private keys: called in the holder's process, or where the holder lives.
using KeyMaker = std::function<std::vector<PrivateKey>()>;

enum class HolderKind { process, memory };

/// Processes where there is fork.
HolderKind defaultHolderKind();

/// Starts a holder. Call it before the library is set up and before there are threads.
std::unique_ptr<KeyHolder> startHolder(HolderKind kind, const KeyMaker &makeKeys);

} // namespace delegated_tls
