// Who may have what done with a key.
#include "Policy.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace krHolder {

namespace {

bool startsWith(View message, std::string_view text) {
  return message.size() >= text.size() &&
         std::equal(text.begin(), text.end(), message.begin(),
                    [](char left, auto right) { return static_cast<unsigned char>(left) == right; });
}

bool isCertificateVerify(View message) {
  constexpr std::size_t kSpaces = 64;
  using namespace std::string_view_literals;
  if (message.size() <= kSpaces ||
      !std::ranges::all_of(message.first(kSpaces), [](auto byte) { return byte == ' '; })) {
    return false;
  }
  const View rest = message.subspan(kSpaces);
  return startsWith(rest, "TLS 1.3, server CertificateVerify\0"sv) ||
         startsWith(rest, "TLS 1.3, client CertificateVerify\0"sv);
}

struct Curve {
  unsigned char number; // RFC 8422, 5.1.1; RFC 7027, 2: all below 256
  std::size_t pointBytes;
  bool uncompressed; // the point begins with 4
};
constexpr std::array kCurves{Curve{23, 65, true}, Curve{24, 97, true},  Curve{25, 133, true}, Curve{26, 65, true},
                             Curve{27, 97, true}, Curve{28, 129, true}, Curve{29, 32, false}, Curve{30, 56, false}};

// Two randoms, then curve type, curve, length of the point, point: to the last byte. Randoms and point are the asker's
// to choose: with any other length as well there would be room for a certificate or a request for one.
bool isEcdheParameters(View message) {
  constexpr std::size_t kRandoms = 64;
  constexpr std::size_t kHead = 4;
  constexpr unsigned char kNamedCurve = 3;
  constexpr unsigned char kUncompressed = 4;
  if (message.size() <= kRandoms + kHead) {
    return false;
  }
  const View rest = message.subspan(kRandoms);
  return rest[0] == kNamedCurve && rest[1] == 0 && rest.size() == kHead + rest[3] &&
         std::ranges::any_of(kCurves, [&](const Curve &curve) {
           return curve.number == rest[2] && curve.pointBytes == rest[3] &&
                  (!curve.uncompressed || rest[kHead] == kUncompressed);
         });
}

} // namespace

bool isOfTls(View message) { return isCertificateVerify(message) || isEcdheParameters(message); }

bool Policy::allows(const Peer &peer) const {
  return users.contains(peer.user) ||
         std::ranges::any_of(peer.groups, [&](gid_t group) { return groups.contains(group); });
}

std::optional<std::string> Policy::refusalOf(const Request &request) const {
  if (request.operation == Operation::raw && !raw) {
    return "the key does no raw RSA";
  }
  if (request.operation == Operation::decrypt && !decrypt) {
    return "the key does not decrypt";
  }
  if (request.operation != Operation::sign) {
    return std::nullopt;
  }
  const auto &sign = std::get<Sign>(request.body);
  if (!schemes.contains(sign.scheme)) {
    return "the key does not sign in this scheme";
  }
  if (!digests.contains(sign.digest) || (sign.scheme == Scheme::pss && !digests.contains(sign.maskDigest))) {
    return "the key does not sign with this digest";
  }
  if (use == Use::tls && (sign.form != Form::message || !isOfTls(sign.data))) {
    return "the key signs TLS handshakes alone";
  }
  return std::nullopt;
}

} // namespace krHolder
