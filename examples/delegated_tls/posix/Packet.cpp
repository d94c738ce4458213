// Packets of a SOCK_SEQPACKET socket.
#include "posix/Packet.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace delegated_tls {
namespace {

constexpr std::size_t kMaxPacketBytes = 65536;

template <class Call> ssize_t uninterrupted(Call call) {
  ssize_t result = call();
  while (result < 0 && errno == EINTR) {
    result = call();
  }
  return result;
}

} // namespace

void PacketWriter::number(std::uint32_t value) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(&value);
  packet_.insert(packet_.end(), bytes, bytes + sizeof value);
}

void PacketWriter::bytes(const Bytes &value) {
  number(static_cast<std::uint32_t>(value.size()));
  packet_.insert(packet_.end(), value.begin(), value.end());
}

void PacketWriter::text(const std::string &value) { bytes(Bytes(value.begin(), value.end())); }

bool PacketWriter::send(const Descriptor &socket) const {
  const ssize_t sent =
      uninterrupted([&] { return ::send(socket.get(), packet_.data(), packet_.size(), MSG_NOSIGNAL); });
  return sent == static_cast<ssize_t>(packet_.size());
}

std::optional<PacketReader> PacketReader::receive(const Descriptor &socket) {
  Bytes packet(kMaxPacketBytes);
  const ssize_t received = uninterrupted([&] { return recv(socket.get(), packet.data(), packet.size(), 0); });
  if (received <= 0) {
    return std::nullopt;
  }
  packet.resize(static_cast<std::size_t>(received));
  return PacketReader(std::move(packet));
}

std::uint32_t PacketReader::number() {
  std::uint32_t value = 0;
  if (packet_.size() - at_ >= sizeof value) {
    std::memcpy(&value, packet_.data() + at_, sizeof value);
    at_ += sizeof value;
  } else {
    at_ = packet_.size();
  }
  return value;
}

Bytes PacketReader::bytes() {
  const std::size_t length = std::min<std::size_t>(number(), packet_.size() - at_);
  const unsigned char *begin = packet_.data() + at_;
  at_ += length;
  return {begin, begin + length};
}

std::string PacketReader::text() {
  const Bytes value = bytes();
  return {value.begin(), value.end()};
}

} // namespace delegated_tls
