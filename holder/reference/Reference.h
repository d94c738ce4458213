// What stands in a server's configuration in place of a key file: which key is meant, not the key. README.md beside
// this file is the format.
#pragma once

#include "wire/Wiping.h"

#include <stdexcept>
#include <string>
#include <string_view>

namespace krHolder {

/// The label of the PEM block that carries it.
inline constexpr char kReferenceLabel[] = "KRHOLDER KEY REFERENCE";

struct Reference {
  std::string name;   ///< the key's name at the holder; empty: whichever key has this public key
  Bytes publicKey;    ///< SubjectPublicKeyInfo, DER
  std::string socket; ///< the holder's; empty: as the program is set up
};

/// What is no reference, or a damaged one. Its text says what is wrong, for people.
class BadReference : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// @return the DER of a reference, its members as they are
/// @throws BadReference when a member does not keep to the format
Bytes encode(const Reference &reference);

/// The public key is looked at no further than that it is a SEQUENCE.
/// @throws BadReference
Reference decodeReference(View der);

/// Whether a path is one that a holder's socket can have: absolute, at most 107 bytes, no control characters.
bool isSocket(std::string_view path);

} // namespace krHolder
