// Keys in PEM files.
#pragma once

#include <krOpenSSL/krHandles.h>

#include <string>

namespace krHolder {

/// @param passphraseFile  its first line opens the key; empty: the key is not encrypted
/// @throws Unusable for a file that everybody may read, and for what is no private key or does not open
krOpenSSL::EVPPKeyPtr readKeyFile(const std::string &file, const std::string &passphraseFile);

/// The public key in a PEM file: a certificate's, or one that stands alone.
/// @throws Unusable for a file that has none
krOpenSSL::EVPPKeyPtr readPublicKeyFile(const std::string &file);

} // namespace krHolder
