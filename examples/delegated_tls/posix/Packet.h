// Messages between the server and its key holder: numbers of 32 bits and byte strings with their length,
// all in the byte order of the machine both run on.
#pragma once

#include "Bytes.h"
#include "Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>

namespace delegated_tls {

class PacketWriter {
public:
  void number(std::uint32_t value);
  void bytes(const Bytes &value);
  void text(const std::string &value);

  /// False when the other end is gone or does not take the packet in time.
  bool send(const Descriptor &socket) const;

private:
  Bytes packet_;
};

/// Reading past the end of a packet gives zeros and empty strings.
class PacketReader {
public:
  /// Nothing when the other end is gone or silent for too long.
  static std::optional<PacketReader> receive(const Descriptor &socket);

  std::uint32_t number();
  Bytes bytes();
  std::string text();
  bool atEnd() const { return at_ == packet_.size(); }

private:
  explicit PacketReader(Bytes packet) : packet_(std::move(packet)) {}

  Bytes packet_;
  std::size_t at_ = 0;
};

} // namespace delegated_tls
