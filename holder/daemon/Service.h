// Answers requests: finds the key, judges who asks for what, has the key do it, and writes it down.
#pragma once

#include "Config.h"
#include "Metrics.h"
#include "PrivateKey.h"
#include "Rate.h"

#include <memory>

namespace krHolder {

/// The keys of one configuration. Any number of threads may ask at once.
class Service {
public:
  /// @param metrics  outlives it
  /// @throws Unusable for a key that cannot be used
  Service(const Config &config, Metrics &metrics);

  Answer answer(const Request &request, const Peer &peer) const;

private:
  struct Entry {
    Entry(PrivateKey own, const KeyConfig &config)
        : key(std::move(own)), policy(config.policy), rate(config.perSecond) {}

    PrivateKey key;
    Policy policy;
    mutable Rate rate;
  };
  using Entries = std::map<std::string, std::unique_ptr<const Entry>, std::less<>>;

  Entries::const_iterator find(const Request &request) const;
  Bytes work(const Request &request, const Peer &peer, std::string &keyName) const;

  Metrics &metrics_;
  Entries entries_;
};

} // namespace krHolder
