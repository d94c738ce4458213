// Coding, decoding, cutting.
#include "posix/Frame.h"

#include <algorithm>
#include <cstring>

namespace delegated_tls {

FrameWriter &FrameWriter::number(std::uint32_t value) {
  const auto *bytes = reinterpret_cast<const unsigned char *>(&value);
  frame_.insert(frame_.end(), bytes, bytes + sizeof value);
  return *this;
}

FrameWriter &FrameWriter::bytes(const Bytes &value) {
  number(static_cast<std::uint32_t>(value.size()));
  frame_.insert(frame_.end(), value.begin(), value.end());
  return *this;
}

FrameWriter &FrameWriter::text(const std::string &value) { return bytes(Bytes(value.begin(), value.end())); }

void FrameWriter::appendTo(Bytes &stream) const {
  const Bytes whole = FrameWriter().bytes(frame_).frame_;
  stream.insert(stream.end(), whole.begin(), whole.end());
}

std::uint32_t FrameReader::number() {
  std::uint32_t value = 0;
  if (frame_.size() - at_ >= sizeof value) {
    std::memcpy(&value, frame_.data() + at_, sizeof value);
    at_ += sizeof value;
  } else {
    at_ = frame_.size();
  }
  return value;
}

Bytes FrameReader::bytes() {
  const std::size_t length = std::min<std::size_t>(number(), frame_.size() - at_);
  const unsigned char *begin = frame_.data() + at_;
  at_ += length;
  return {begin, begin + length};
}

std::string FrameReader::text() {
  const Bytes value = bytes();
  return {value.begin(), value.end()};
}

std::optional<FrameReader> FrameStream::next() {
  std::uint32_t length = 0;
  if (stream_.size() < sizeof length) {
    return std::nullopt;
  }
  std::memcpy(&length, stream_.data(), sizeof length);
  if (stream_.size() - sizeof length < length) {
    return std::nullopt;
  }
  const auto begin = stream_.begin() + sizeof length;
  FrameReader frame(Bytes(begin, begin + length));
  stream_.erase(stream_.begin(), begin + length);
  return frame;
}

} // namespace delegated_tls
