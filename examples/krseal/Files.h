// Files as the layer wants them: as bytes that are wiped, read whole or in pieces with their progress.
#pragma once

#include <krOpenSSL/krCrypto.hpp>

#include <filesystem>
#include <functional>
#include <span>

namespace krseal {

using Path = std::filesystem::path;

/// Tells of a long file's progress on standard error.
krOpenSSL::Progress progressOf(const Path &file);

/// Hands a file's content on piece by piece.
/// @throws std::runtime_error for what cannot be read to its end
void readPieces(const Path &file, const std::function<void(std::span<const unsigned char>)> &take);

/// A file's content.
krOpenSSL::SecretBytes readFile(const Path &file);

/// A file that holds a key as hexadecimal digits.
krOpenSSL::SecretBytes readKey(const Path &file);

enum class Access { everyone, owner };

/// Writes a file that must not be there yet, and removes it when that fails.
void writeFile(const Path &file, krOpenSSL::ByteView bytes, Access access = Access::everyone);

} // namespace krseal
