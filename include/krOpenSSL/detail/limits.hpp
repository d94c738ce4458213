/// @file
/// What a delegated key takes away from a context: what it would be asked for and cannot do. Nothing here is for
/// callers.
///
/// It does so through the context's security callback, which OpenSSL asks for its own side alone: the signatures and
/// suites that it may choose, not those that it takes from its peer.
#pragma once

#include <krOpenSSL/krFips.h>
#include <krOpenSSL/krHandles.h>

#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace krOpenSSL::detail {

/// The signature schemes that are made (RFC 8446, 4.2.3).
struct Scheme {
  unsigned code;
  int keyType;
  bool isPss;
};
inline constexpr std::array<Scheme, 10> kSchemes{{{0x0401, EVP_PKEY_RSA, false},
                                                  {0x0501, EVP_PKEY_RSA, false},
                                                  {0x0601, EVP_PKEY_RSA, false},
                                                  {0x0804, EVP_PKEY_RSA, true},
                                                  {0x0805, EVP_PKEY_RSA, true},
                                                  {0x0806, EVP_PKEY_RSA, true},
                                                  {0x0402, EVP_PKEY_DSA, false},
                                                  {0x0403, EVP_PKEY_EC, false},
                                                  {0x0503, EVP_PKEY_EC, false},
                                                  {0x0603, EVP_PKEY_EC, false}}};

/// The type of key that makes signatures of a scheme, whether it is in the table or not.
constexpr int keyTypeOf(unsigned code) noexcept {
  constexpr std::array kOldTypes{NID_undef, EVP_PKEY_RSA, EVP_PKEY_DSA, EVP_PKEY_EC};
  constexpr unsigned kNewSchemes = 0x08; // those of PSS; the others of them sign with keys of other types
  if (code >> 8U == kNewSchemes) {
    return (code & 0xffU) >= 0x04 && (code & 0xffU) <= 0x06 ? EVP_PKEY_RSA : NID_undef;
  }
  return (code & 0xffU) < kOldTypes.size() ? kOldTypes[code & 0xffU] : NID_undef;
}

inline unsigned schemeOf(const void *twoBytes) noexcept {
  const auto *bytes = static_cast<const unsigned char *>(twoBytes);
  return static_cast<unsigned>(bytes[0]) << 8U | bytes[1];
}

inline bool isKeyTransport(const SSL_CIPHER *suite) noexcept {
  const int exchange = SSL_CIPHER_get_kx_nid(suite);
  return exchange == NID_kx_rsa || exchange == NID_kx_rsa_psk;
}

/// What a key of one type can do.
struct Abilities {
  int keyType;
  bool sign;
  bool signPss;
  bool decrypt;

  int highestVersion() const noexcept { return keyType == EVP_PKEY_EC || signPss ? TLS1_3_VERSION : TLS1_2_VERSION; }

  /// Whether it does, or does not need to do, what @p code and @p suite ask for.
  bool permitScheme(unsigned code) const noexcept { return keyTypeOf(code) != keyType || makes(code); }
  bool permitSuite(const SSL_CIPHER *suite) const noexcept {
    return keyType != EVP_PKEY_RSA || !isKeyTransport(suite) || (decrypt && krFipsMode() == 0);
  }

  /// Whether it makes signatures of the scheme.
  bool makes(unsigned code) const noexcept {
    return std::ranges::any_of(kSchemes, [&](const Scheme &scheme) {
      return scheme.code == code && scheme.keyType == keyType && (scheme.isPss ? signPss : sign);
    });
  }
};

/// What a context would do with a key, looked at through a connection that is never made.
class Prospect {
public:
  /// @param highestVersion  as the context is going to have it
  Prospect(SSL_CTX *context, int highestVersion) : probe_(SSL_new(context)) {
    if (probe_ == nullptr || SSL_set_max_proto_version(probe_.get(), highestVersion) != 1) {
      probe_.reset();
      return;
    }
    isServer_ = SSL_is_server(probe_.get()) != 0;
  }

  /// Whether the context makes connections: nothing else is to be asked before.
  bool isThere() const noexcept { return probe_ != nullptr; }

  /// Whether a suite is left with which the key is used, in any version. Asked as a client, OpenSSL looks at the
  /// algorithms that a server signs with.
  bool hasSuite(const Abilities &key) {
    SSL_set_connect_state(probe_.get());
    const std::unique_ptr<STACK_OF(SSL_CIPHER), Release> suites(SSL_get1_supported_ciphers(probe_.get()));
    for (int i = 0; i < sk_SSL_CIPHER_num(suites.get()); ++i) {
      const SSL_CIPHER *suite = sk_SSL_CIPHER_value(suites.get(), i);
      const int authentication = SSL_CIPHER_get_auth_nid(suite);
      if (!isServer_ || authentication == NID_auth_any ||
          (authentication == authenticationOf(key.keyType) && key.permitSuite(suite))) {
        return true;
      }
    }
    return false;
  }

  /// Whether the caller's signature algorithms have one that the key makes in these versions. OpenSSL's list of what a
  /// side signs with is what it would tell its peer in the other role.
  bool hasScheme(const Abilities &key, int lowestVersion, int highestVersion) {
    std::vector<unsigned> codes;
    isServer_ ? SSL_set_connect_state(probe_.get()) : SSL_set_accept_state(probe_.get());
    SSL_set0_security_ex_data(probe_.get(), &codes);
    SSL_set_security_callback(probe_.get(), noteScheme);
    const std::unique_ptr<STACK_OF(SSL_CIPHER), Release> asked(SSL_get1_supported_ciphers(probe_.get()));
    return highestVersion < TLS1_2_VERSION || std::ranges::any_of(codes, [&](unsigned code) {
             const bool onlyIn12 = code >> 8U != 0x08 && key.keyType != EVP_PKEY_EC;
             return key.makes(code) && (!onlyIn12 || lowestVersion <= TLS1_2_VERSION);
           });
  }

private:
  struct Release {
    void operator()(STACK_OF(SSL_CIPHER) * suites) const noexcept { sk_SSL_CIPHER_free(suites); }
  };

  static int authenticationOf(int keyType) noexcept {
    return keyType == EVP_PKEY_RSA ? NID_auth_rsa : keyType == EVP_PKEY_DSA ? NID_auth_dss : NID_auth_ecdsa;
  }

  static int noteScheme(const SSL * /*ssl*/, const SSL_CTX * /*context*/, int operation, int /*bits*/, int /*nid*/,
                        void *other, void *codes) {
    if (operation != SSL_SECOP_SIGALG_MASK) {
      return 1;
    }
    static_cast<std::vector<unsigned> *>(codes)->push_back(schemeOf(other));
    return 0; // it goes on with the next only while none is allowed
  }

  SSLPtr probe_;
  bool isServer_ = false;
};

} // namespace krOpenSSL::detail
