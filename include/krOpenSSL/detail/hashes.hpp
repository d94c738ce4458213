/// @file
/// What krCrypto.hpp knows of the digest classes, and of the mode that an object was made in. Nothing here is for
/// callers.
#pragma once

#include <krOpenSSL/krBytes.hpp>
#include <krOpenSSL/krFips.h>
#include <krOpenSSL/kroHash.h>

namespace krOpenSSL::detail {

struct HashFacts {
  std::size_t digestBytes, blockBytes;
  std::string_view name;
  bool supportsFips;
};
template <class T> inline constexpr HashFacts kFacts{0, 0, {}, false}; // of other classes
template <> inline constexpr HashFacts kFacts<kroMD5>{16, 64, "MD5", false};
template <> inline constexpr HashFacts kFacts<kroSHA1>{20, 64, "SHA-1", true};
template <> inline constexpr HashFacts kFacts<kroSHA224>{28, 64, "SHA-224", true};
template <> inline constexpr HashFacts kFacts<kroSHA256>{32, 64, "SHA-256", true};
template <> inline constexpr HashFacts kFacts<kroSHA384>{48, 128, "SHA-384", true};
template <> inline constexpr HashFacts kFacts<kroSHA512>{64, 128, "SHA-512", true};

template <class T> constexpr bool hasFacts() noexcept { return kFacts<T>.digestBytes != 0; }

/// The life of an object that works in several calls: it ends with the last, and with the mode that it began in.
class Life {
public:
  /// One more call.
  /// @throws CryptoError after the end
  void go() {
    if (over_) {
      throw CryptoError("the object is at its end");
    }
    over_ = now() != began_;
    if (over_) {
      throw CryptoError("the FIPS mode has changed since the object was made");
    }
  }

  /// The last call; as go.
  void end() {
    go();
    over_ = true;
  }

private:
  struct Mode {
    int fips, provider, moduleState;
    bool operator==(const Mode &) const = default;
  };

  // In ordinary mode neither a provider nor a module matters.
  static Mode now() noexcept {
    if (krFipsMode() == 0) {
      return {0, 0, 0};
    }
    return {1, krFipsUsingOpenSSLFIPS(), krFipsGetState()};
  }

  Mode began_ = now();
  bool over_ = false;
};

} // namespace krOpenSSL::detail
