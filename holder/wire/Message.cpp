// The frames: README.md beside this file, in code.
#include "Octets.h"

#include <algorithm>
#include <utility>

namespace krHolder {

namespace {

constexpr std::uint32_t kHead = 0; // until the length is known

Bytes framed(Bytes frame) {
  std::ranges::copy(octetsOf(static_cast<std::uint32_t>(frame.size() - kHeadBytes)), frame.begin());
  return frame;
}

View viewOf(std::string_view text) { return {reinterpret_cast<const unsigned char *>(text.data()), text.size()}; }
Bytes bytesOf(View view) { return {view.begin(), view.end()}; }

// Bodies: one writer and one reader for each.

void write(Writer & /*to*/, const std::monostate & /*nothing*/) {}
void write(Writer &to, const Hello &hello) { to.number(hello.version); }
void write(Writer &to, const Sign &sign) {
  to.code(sign.scheme).code(sign.digest).code(sign.maskDigest).number(sign.saltBytes).code(sign.form).bytes(sign.data);
}
void write(Writer &to, const Decrypt &decrypt) {
  to.code(decrypt.padding).code(decrypt.digest).code(decrypt.maskDigest);
  to.number(decrypt.clientVersion).number(decrypt.otherVersion);
  to.number(static_cast<std::uint16_t>(decrypt.label.size())).bytes(decrypt.label).bytes(decrypt.data);
}
void write(Writer &to, const Raw &raw) { to.bytes(raw.data); }

Digest readDigest(Reader &from) { return from.code(Digest::none, Digest::sha512); }

Sign readSign(Reader &from) {
  Sign sign;
  sign.scheme = from.code(Scheme::pkcs1, Scheme::ecdsa);
  sign.digest = readDigest(from);
  sign.maskDigest = readDigest(from);
  sign.saltBytes = from.number<std::uint16_t>();
  sign.form = from.code(Form::digest, Form::message);
  sign.data = bytesOf(from.rest());
  return sign;
}

Decrypt readDecrypt(Reader &from) {
  Decrypt decrypt;
  decrypt.padding = from.code(Padding::pkcs1, Padding::tls);
  decrypt.digest = readDigest(from);
  decrypt.maskDigest = readDigest(from);
  decrypt.clientVersion = from.number<std::uint16_t>();
  decrypt.otherVersion = from.number<std::uint16_t>();
  decrypt.label = bytesOf(from.take(from.number<std::uint16_t>()));
  decrypt.data = bytesOf(from.rest());
  return decrypt;
}

decltype(Request::body) readBody(Operation operation, Reader &from) {
  switch (operation) {
  case Operation::hello:
    return Hello{from.number<std::uint16_t>()};
  case Operation::sign:
    return readSign(from);
  case Operation::decrypt:
    return readDecrypt(from);
  case Operation::raw:
    return Raw{bytesOf(from.rest())};
  default:
    return {};
  }
}

} // namespace

Bytes encode(const Request &request) {
  Writer to;
  to.number(kHead).code(request.operation).number(request.id).number(request.deadline).bytes(request.key);
  to.number(static_cast<std::uint8_t>(request.name.size())).bytes(viewOf(request.name));
  std::visit([&](const auto &body) { write(to, body); }, request.body);
  return framed(std::move(to).take());
}

Bytes encode(const Answer &answer) {
  Writer to;
  to.number(kHead).number(answer.id).code(answer.status).bytes(answer.data);
  return framed(std::move(to).take());
}

std::optional<std::size_t> payloadBytes(std::span<const unsigned char, kHeadBytes> head) {
  const std::size_t length = Reader(head).number<std::uint32_t>();
  return length >= 1 && length <= kMaxPayloadBytes ? std::optional(length) : std::nullopt;
}

std::optional<Request> decodeRequest(View payload) {
  Reader from(payload);
  Request request;
  request.operation = from.code(Operation::hello, Operation::raw);
  request.id = from.number<std::uint64_t>();
  request.deadline = from.number<std::uint32_t>();
  std::ranges::copy(from.take(request.key.size()), request.key.begin());
  const View name = from.take(from.number<std::uint8_t>());
  request.name.assign(name.begin(), name.end());
  request.body = readBody(request.operation, from);
  const bool good = from.whole() && request.id != 0 && (request.name.empty() || isName(request.name));
  return good ? std::optional(std::move(request)) : std::nullopt;
}

std::optional<Answer> decodeAnswer(View payload) {
  Reader from(payload);
  Answer answer;
  answer.id = from.number<std::uint64_t>();
  answer.status = from.code(Status::ok, Status::failed);
  answer.data = bytesOf(from.rest());
  const bool good = from.whole() && (answer.status == Status::ok || answer.data.size() <= kMaxTextBytes);
  return good ? std::optional(std::move(answer)) : std::nullopt;
}

bool isName(std::string_view name) {
  constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
  return !name.empty() && name.size() <= kMaxNameBytes && name.find_first_not_of(kAllowed) == std::string_view::npos;
}

Answer refusal(std::uint64_t id, Status status, std::string_view text) {
  return {id, status, bytesOf(viewOf(text.substr(0, kMaxTextBytes)))};
}

} // namespace krHolder
