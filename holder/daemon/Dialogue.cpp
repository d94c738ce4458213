// One connection from its first frame to its last.
#include "Dialogue.h"

#include "Log.h"

#include <algorithm>
#include <array>
#include <sys/socket.h>

namespace krHolder {

namespace {

// For the rest of a frame that has begun, and for a client that takes its answer.
constexpr std::chrono::seconds kPatience{5};

std::set<gid_t> groupsOf(const Descriptor &connection) {
  std::array<gid_t, 1024> groups{};
  socklen_t bytes = sizeof groups;
  const bool known = getsockopt(connection.get(), SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes) == 0;
  return {groups.begin(), groups.begin() + (known ? bytes / sizeof(gid_t) : 0)};
}

std::optional<Peer> peerOf(const Descriptor &connection) {
  ucred credentials{};
  socklen_t bytes = sizeof credentials;
  if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &bytes) != 0) {
    return std::nullopt;
  }
  Peer peer{credentials.pid, credentials.uid, groupsOf(connection)};
  peer.groups.insert(credentials.gid);
  return peer;
}

std::optional<Request> nextRequest(Incoming &incoming, const Peer &peer) {
  Bytes payload;
  Outcome outcome = incoming.await();
  if (outcome == Outcome::done) {
    outcome = incoming.next(payload, Clock::now() + kPatience);
  }
  auto request = outcome == Outcome::done ? decodeRequest(payload) : std::nullopt;
  if (!request && outcome != Outcome::closed) {
    log("malformed", {{"uid", std::to_string(peer.user)}, {"pid", std::to_string(peer.process)}});
  }
  return request;
}

void serve(const Descriptor &connection, const Peer &peer, const CurrentService &current) {
  Incoming incoming(connection);
  bool greeted = false;
  while (const auto request = nextRequest(incoming, peer)) {
    const bool greets = request->operation == Operation::hello;
    const Answer answer = greets == greeted ? refusal(request->id, Status::badRequest, "one greeting, first of all")
                                            : current()->answer(*request, peer);
    if (send(connection, encode(answer), Clock::now() + kPatience) != Outcome::done ||
        (!greeted && answer.status != Status::ok)) {
      return;
    }
    greeted = true;
  }
}

} // namespace

void converse(const Descriptor &connection, const CurrentService &current) noexcept {
  try {
    if (const auto peer = peerOf(connection)) {
      serve(connection, *peer, current);
    }
  } catch (const std::exception &failure) { // no memory: the client asks anew
    log("connection", {{"outcome", "failed"}, {"reason", failure.what()}});
  }
}

} // namespace krHolder
