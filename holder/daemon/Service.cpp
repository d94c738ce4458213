// Answers requests.
#include "Service.h"

#include "Failure.h"
#include "Log.h"
#include "wire/Octets.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace krHolder {

namespace {

Bytes greet(const Request &request) {
  if (std::get<Hello>(request.body).version != kVersion) {
    throw Refusal(Status::badRequest, "the holder speaks version " + std::to_string(kVersion));
  }
  return std::move(Writer().number(kVersion)).take();
}

Bytes operate(const PrivateKey &key, const Request &request) {
  switch (request.operation) {
  case Operation::sign:
    return key.sign(std::get<Sign>(request.body));
  case Operation::decrypt:
    return key.decrypt(std::get<Decrypt>(request.body));
  case Operation::raw:
    return key.raw(std::get<Raw>(request.body));
  default:
    return key.publicKey();
  }
}

// Greetings and pings that went well are of no interest to anybody.
bool isWorthALine(const Request &request, const Answer &answer) {
  return answer.status != Status::ok || (request.operation != Operation::hello && request.operation != Operation::ping);
}

} // namespace

Service::Service(const Config &config, Metrics &metrics) : metrics_(metrics) {
  for (const auto &[name, key] : config.keys) {
    try {
      entries_.emplace(name, std::make_unique<const Entry>(PrivateKey(key.open(key.settings)), key));
    } catch (const std::exception &reason) { // a back end may be anybody's
      throw Unusable(key.place + ": " + reason.what());
    }
  }
}

Service::Entries::const_iterator Service::find(const Request &request) const {
  const bool anyKey = request.key == Fingerprint{};
  if (request.name.empty()) {
    const auto found = std::ranges::find_if(
        entries_, [&](const auto &entry) { return entry.second->key.fingerprint() == request.key; });
    if (found == entries_.end()) {
      throw Refusal(Status::noKey, "there is no such key");
    }
    return found;
  }
  const auto found = entries_.find(request.name);
  if (found == entries_.end()) {
    throw Refusal(Status::noKey, "there is no key \"" + request.name + "\"");
  }
  if (found->second->key.fingerprint() != request.key && !(anyKey && request.operation == Operation::publicKey)) {
    throw Refusal(Status::wrongKey, "the key \"" + request.name + "\" is another one now");
  }
  return found;
}

Bytes Service::work(const Request &request, const Peer &peer, std::string &keyName) const {
  if (request.operation == Operation::hello) {
    return greet(request);
  }
  if (request.operation == Operation::ping) {
    return {};
  }
  const auto found = find(request);
  const Entry &entry = *found->second;
  keyName = found->first;
  if (!entry.policy.allows(peer)) {
    throw Refusal(Status::refused, "user " + std::to_string(peer.user) + " may not use the key \"" + keyName + "\"");
  }
  if (const auto refusal = entry.policy.refusalOf(request)) {
    throw Refusal(Status::refused, *refusal);
  }
  if (!entry.rate.take()) {
    throw Refusal(Status::busy, "the key's limit of operations a second is reached");
  }
  return operate(entry.key, request);
}

Answer Service::answer(const Request &request, const Peer &peer) const {
  const auto begun = std::chrono::steady_clock::now();
  std::string keyName;
  std::string why;
  Answer answer;
  try {
    answer = {request.id, Status::ok, work(request, peer, keyName)};
  } catch (const Refusal &reason) {
    answer = refusal(request.id, reason.status, reason.what());
    why = reason.reason;
  } catch (const std::bad_alloc &) {
    answer = refusal(request.id, Status::failed, "the holder has no memory");
  }
  const auto took = std::chrono::steady_clock::now() - begun;
  metrics_.count(keyName, request.operation, answer.status, took);
  if (isWorthALine(request, answer)) {
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    log(nameOf(request.operation), {{"key", keyName},
                                    {"uid", std::to_string(peer.user)},
                                    {"pid", std::to_string(peer.process)},
                                    {"outcome", std::string(nameOf(answer.status))},
                                    {"us", std::to_string(microseconds)},
                                    {"reason", why}});
  }
  return answer;
}

} // namespace krHolder
