// Messages between the server and its key holder: numbers of 32 bits and byte strings with their length,
// all in the byte order of the machine both run on. In a stream each comes with its length before it.
#pragma once

#include "Bytes.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace delegated_tls {

class FrameWriter {
public:
  FrameWriter &number(std::uint32_t value);
  FrameWriter &bytes(const Bytes &value);
  FrameWriter &text(const std::string &value);

  const Bytes &frame() const { return frame_; }

  /// Adds the frame to a stream.
  void appendTo(Bytes &stream) const;

private:
  Bytes frame_;
};

/// Reading past the end of a frame gives zeros and empty strings.
class FrameReader {
public:
  explicit FrameReader(Bytes frame) : frame_(std::move(frame)) {}

  std::uint32_t number();
  Bytes bytes();
  std::string text();
  bool atEnd() const { return at_ == frame_.size(); }

private:
  Bytes frame_;
  std::size_t at_ = 0;
};

/// The frames of a stream that comes in parts.
class FrameStream {
public:
  void append(std::span<const unsigned char> part) { stream_.insert(stream_.end(), part.begin(), part.end()); }

  /// The next whole frame, if it is there.
  std::optional<FrameReader> next();

private:
  Bytes stream_;
};

} // namespace delegated_tls
