// What tokens sign and what they give back, against what TLS has.
#pragma once

#include "wire/Wiping.h"

namespace krHolder::pkcs11 {

/// The DigestInfo (RFC 8017, 9.2) around a digest, whose hash algorithm its length tells; MD5+SHA-1 stays as it is (RFC
/// 4346, 4.7). Throws a Failure for a length that no hash algorithm has.
Bytes digestInfo(View digest);

/// The DER form of an ECDSA signature that is r and s in halves of one length. Throws a Failure for any other.
Bytes derSignature(View halves);

} // namespace krHolder::pkcs11
