// Reading and writing of whole files.
#include "Files.h"

#include <fstream>
#include <iostream>
#include <stdexcept>

namespace krseal {

namespace {

constexpr std::uintmax_t kLongFileBytes = std::uintmax_t{16} << 20U;
constexpr std::size_t kPieceBytes = std::size_t{256} << 10U;

[[noreturn]] void fail(const Path &file, const char *what) { throw std::runtime_error(file.string() + ": " + what); }

} // namespace

krOpenSSL::Progress progressOf(const Path &file) {
  std::error_code unknown;
  if (const auto size = std::filesystem::file_size(file, unknown); unknown || size < kLongFileBytes) {
    return {};
  }
  return [shown = std::uintmax_t{0}](std::uintmax_t done, std::uintmax_t all) mutable {
    const std::uintmax_t percent = all != 0 ? done * 100 / all : 100;
    if (percent != shown) {
      std::cerr << '\r' << percent << " %" << (percent >= 100 ? "\n" : "") << std::flush;
      shown = percent;
    }
  };
}

void readPieces(const Path &file, const std::function<void(std::span<const unsigned char>)> &take) {
  const krOpenSSL::Progress progress = progressOf(file);
  std::ifstream in(file, std::ios::binary);
  krOpenSSL::SecretBytes piece(kPieceBytes);
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(file, unknown);
  std::uintmax_t done = 0;
  while (in.read(reinterpret_cast<char *>(piece.data()), kPieceBytes), in.gcount() > 0) {
    const auto count = static_cast<std::size_t>(in.gcount());
    take(std::span(piece).first(count));
    done += count;
    if (progress) {
      progress(done, unknown ? 0 : size);
    }
  }
  if (!in.eof() || in.bad()) {
    fail(file, "cannot be read");
  }
}

krOpenSSL::SecretBytes readFile(const Path &file) {
  krOpenSSL::SecretBytes bytes;
  readPieces(file, [&](auto piece) { bytes.insert(bytes.end(), piece.begin(), piece.end()); });
  return bytes;
}

krOpenSSL::SecretBytes readKey(const Path &file) {
  const krOpenSSL::SecretBytes text = readFile(file);
  std::string_view digits(reinterpret_cast<const char *>(text.data()), text.size());
  const std::size_t end = digits.find_last_not_of("\r\n");
  return krOpenSSL::unhex(digits.substr(0, end == std::string_view::npos ? 0 : end + 1));
}

void writeFile(const Path &file, krOpenSSL::ByteView bytes, Access access) {
  if (std::filesystem::exists(file)) {
    fail(file, "is there already");
  }
  std::ofstream out(file, std::ios::binary);
  if (access == Access::owner) {
    using std::filesystem::perms;
    std::filesystem::permissions(file, perms::owner_read | perms::owner_write);
  }
  out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
    fail(file, "cannot be written");
  }
}

} // namespace krseal
