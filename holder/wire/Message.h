// What a client asks of the key holder, and what the holder answers. README.md beside this file is the format.
#pragma once

#include "Wiping.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace krHolder {

inline constexpr std::uint16_t kVersion = 1;
inline constexpr std::size_t kHeadBytes = 4; // of a frame: its payload's length
inline constexpr std::size_t kMaxPayloadBytes = 65536;
inline constexpr std::size_t kMaxMessageBytes = 16384; // that the holder hashes
inline constexpr std::size_t kMaxNameBytes = 64;
inline constexpr std::size_t kMaxTextBytes = 200;
inline constexpr std::size_t kPremasterBytes = 48;
inline constexpr std::uint16_t kAnyVersion = 0; // of a key exchange: the client looks at it itself

enum class Operation : std::uint8_t { hello = 1, ping, publicKey, sign, decrypt, raw };
enum class Scheme : std::uint8_t { pkcs1 = 1, pss, ecdsa };
enum class Digest : std::uint8_t { none, md5Sha1, sha1, sha224, sha256, sha384, sha512 };
enum class Form : std::uint8_t { digest = 1, message };
enum class Padding : std::uint8_t { pkcs1 = 1, oaep, tls };
enum class Status : std::uint8_t { ok, refused, noKey, wrongKey, badRequest, busy, failed };

/// SHA-256 of a public key's DER (SubjectPublicKeyInfo).
using Fingerprint = std::array<unsigned char, 32>;

struct Hello {
  std::uint16_t version = kVersion;
};
struct Sign {
  Scheme scheme = Scheme::pkcs1;
  Digest digest = Digest::none;
  Digest maskDigest = Digest::none;
  std::uint16_t saltBytes = 0;
  Form form = Form::digest;
  Bytes data;
};
struct Decrypt {
  Padding padding = Padding::pkcs1;
  Digest digest = Digest::none;
  Digest maskDigest = Digest::none;
  std::uint16_t clientVersion = 0;
  std::uint16_t otherVersion = 0;
  Bytes label;
  Bytes data;
};
struct Raw {
  Bytes data;
};

struct Request {
  Operation operation = Operation::ping;
  std::uint64_t id = 0;
  std::uint32_t deadline = 0; ///< in milliseconds
  Fingerprint key{};
  std::string name;
  std::variant<std::monostate, Hello, Sign, Decrypt, Raw> body; ///< of the operation; none for ping and publicKey
};

struct Answer {
  std::uint64_t id = 0;
  Status status = Status::failed;
  Bytes data;
};

/// A whole frame.
Bytes encode(const Request &request);
Bytes encode(const Answer &answer);

/// The length of the payload that follows.
/// @return nothing for a length that no frame has
std::optional<std::size_t> payloadBytes(std::span<const unsigned char, kHeadBytes> head);

/// @return nothing for a payload that is malformed
std::optional<Request> decodeRequest(View payload);
std::optional<Answer> decodeAnswer(View payload);

/// Whether a name keeps to the rules of the format, and is not empty.
bool isName(std::string_view name);

/// An answer that tells why there is no other.
/// @param text  cut after kMaxTextBytes
Answer refusal(std::uint64_t id, Status status, std::string_view text);

} // namespace krHolder
