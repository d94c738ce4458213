// Reading and writing of whole files.
#include "Files.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <memory>

namespace krseal {

krOpenSSL::Progress shownProgress() {
  constexpr std::uintmax_t kLongFileBytes = std::uintmax_t{16} << 20U;
  if (!errorsAreSeen()) {
    return {};
  }
  return [shown = std::uintmax_t{0}](std::uintmax_t done, std::uintmax_t all) mutable {
    if (all < kLongFileBytes) {
      return;
    }
    const std::uintmax_t percent = std::min(done, all) * 100 / all;
    if (percent != shown) {
      std::cerr << '\r' << percent << " %" << (percent == 100 ? "\n" : "") << std::flush;
      shown = percent;
    }
  };
}

void readPieces(const Path &file, const std::function<void(krOpenSSL::ByteView)> &take) {
  about(file, [&] { krOpenSSL::readInPieces(file, take, shownProgress()); });
}

krOpenSSL::SecretBytes readFile(const Path &file) {
  krOpenSSL::SecretBytes bytes;
  readPieces(file, [&](auto piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

krOpenSSL::SecretBytes readKey(const Path &file) {
  constexpr std::size_t kLongestBytes = 4096;
  krOpenSSL::SecretBytes text;
  readPieces(file, [&](auto piece) {
    if (text.size() + piece.size() > kLongestBytes) {
      fail(file, "is too long for a key");
    }
    text.insert(text.end(), piece.begin(), piece.end());
  });
  const std::string_view digits(reinterpret_cast<const char *>(text.data()), text.size());
  const std::size_t end = digits.find_last_not_of("\r\n") + 1; // 0 when there is nothing else
  return about(file, [&] { return krOpenSSL::unhex(digits.substr(0, end)); });
}

void writeFile(const Path &file, krOpenSSL::ByteView bytes, Access access) {
  struct Close {
    void operator()(std::FILE *out) const { static_cast<void>(std::fclose(out)); } // what is whole is closed below
  };
  std::unique_ptr<std::FILE, Close> out(makeFile(file, access));
  if (!out) {
    fail(file, errno == EEXIST ? "is there already" : "cannot be made");
  }
  const bool unbuffered = std::setvbuf(out.get(), nullptr, _IONBF, 0) == 0; // secrets stay in no buffer of stdio's
  const bool written = unbuffered && std::fwrite(bytes.data(), 1, bytes.size(), out.get()) == bytes.size();
  if (std::fclose(out.release()) != 0 || !written) {
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    fail(file, "cannot be written");
  }
}

} // namespace krseal
