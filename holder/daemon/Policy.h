// Who may have what done with a key.
#pragma once

#include "wire/Message.h"

#include <optional>
#include <set>
#include <string>
#include <sys/types.h>

namespace krHolder {

/// The process at the other end of a connection, as the kernel knows it since the connection was made.
struct Peer {
  pid_t process = 0;
  uid_t user = 0;
  std::set<gid_t> groups;
};

/// What a key may sign.
enum class Use {
  tls,       ///< what a TLS server or client signs in a handshake: see isOfTls
  everything ///< any digest or message
};

struct Policy {
  std::set<uid_t> users;
  std::set<gid_t> groups;
  std::set<Scheme> schemes{Scheme::pkcs1, Scheme::pss, Scheme::ecdsa};
  std::set<Digest> digests{Digest::sha256, Digest::sha384, Digest::sha512};
  Use use = Use::tls;
  bool decrypt = false;
  bool raw = false;

  bool allows(const Peer &peer) const;

  /// @return why not, or nothing
  std::optional<std::string> refusalOf(const Request &request) const;
};

/// Whether a message is one that a TLS handshake has signed, and nothing else can be taken for it: a CertificateVerify
/// of TLS 1.3 (RFC 8446, 4.4.3), or the parameters of an ECDHE key exchange on a named curve (RFC 8422, 5.4).
bool isOfTls(View message);

} // namespace krHolder
