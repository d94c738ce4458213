// Files as the layer wants them: as bytes that are wiped. What fails names the file.
#pragma once

#include "System.h"

#include <krOpenSSL/krCrypto.hpp>

#include <filesystem>
#include <functional>
#include <stdexcept>

namespace krseal {

using Path = std::filesystem::path;

[[noreturn]] inline void fail(const Path &file, const char *what) {
  throw std::runtime_error(file.string() + ": " + what);
}

/// Has what the layer throws in some work on a file name it.
template <class Work> auto about(const Path &file, const Work &work) {
  try {
    return work();
  } catch (const krOpenSSL::CryptoError &failure) {
    fail(file, failure.what());
  }
}

/// Tells whoever looks at standard error of a long file's progress.
krOpenSSL::Progress shownProgress();

/// Hands a file's content on piece by piece.
void readPieces(const Path &file, const std::function<void(krOpenSSL::ByteView)> &take);

/// A file's content.
krOpenSSL::SecretBytes readFile(const Path &file);

/// A file that holds a key as hexadecimal digits.
krOpenSSL::SecretBytes readKey(const Path &file);

/// Writes a file that must not be there yet, and removes it when that fails.
void writeFile(const Path &file, krOpenSSL::ByteView bytes, Access access = Access::everyone);

} // namespace krseal
