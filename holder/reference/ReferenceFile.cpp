// References as PEM files, by OpenSSL.
#include "ReferenceFile.h"

#include <krOpenSSL/krHandles.h>

#include <openssl/pem.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace krHolder {

namespace {

struct FreeBlock {
  void operator()(void *block) const { OPENSSL_free(block); }
};
template <class Byte> using Block = std::unique_ptr<Byte, FreeBlock>;

[[noreturn]] void failOn(const std::string &file) {
  throw std::runtime_error(file + ": " + std::generic_category().message(errno));
}

struct Close {
  void operator()(std::FILE *stream) const {
    static_cast<void>(std::fclose(stream));
  } // what is written is closed below
};
using Stream = std::unique_ptr<std::FILE, Close>;

} // namespace

Reference readReferenceFile(const std::string &file) {
  const Stream in(std::fopen(file.c_str(), "re"));
  if (!in) {
    failOn(file);
  }
  char *name = nullptr;
  char *header = nullptr;
  unsigned char *data = nullptr;
  long length = 0;
  while (PEM_read(in.get(), &name, &header, &data, &length) == 1) {
    const Block<char> ownName(name);
    const Block<char> ownHeader(header);
    const Block<unsigned char> ownData(data);
    if (std::strcmp(name, kReferenceLabel) != 0) {
      continue;
    }
    try {
      return decodeReference({data, static_cast<std::size_t>(length)});
    } catch (const BadReference &reason) {
      throw BadReference(file + ": the reference is damaged: " + reason.what());
    }
  }
  throw BadReference(file + ": there is no \"BEGIN " + kReferenceLabel + "\"");
}

void writeReferenceFile(const std::string &file, const Reference &reference) {
  const Bytes der = encode(reference);
  Stream out(std::fopen(file.c_str(), "wxe"));
  if (!out) {
    failOn(file);
  }
  const int written = PEM_write(out.get(), kReferenceLabel, "", der.data(), static_cast<long>(der.size()));
  if (std::fclose(out.release()) != 0 || written <= 0) {
    failOn(file);
  }
}

} // namespace krHolder
