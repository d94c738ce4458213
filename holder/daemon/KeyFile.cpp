// Keys in PEM files.
#include "KeyFile.h"

#include "Failure.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace krHolder {

namespace {

constexpr std::size_t kLongestFileBytes = 65536;

[[noreturn]] void fail(const std::string &file, const std::string &what) { throw Unusable(file + ": " + what); }
[[noreturn]] void failOn(const std::string &file) { fail(file, std::generic_category().message(errno)); }

// A secret file's content, in memory that is wiped.
Bytes contentOf(const std::string &file) {
  struct Close {
    void operator()(std::FILE *in) const { static_cast<void>(std::fclose(in)); } // nothing was written
  };
  const std::unique_ptr<std::FILE, Close> in(std::fopen(file.c_str(), "rbe"));
  struct stat status {};
  if (!in || fstat(fileno(in.get()), &status) != 0) {
    failOn(file);
  }
  if ((status.st_mode & S_IRWXO) != 0) {
    fail(file, "others than its owner and group may use it");
  }
  if (std::setvbuf(in.get(), nullptr, _IONBF, 0) != 0) { // no copy in a buffer of stdio's
    failOn(file);
  }
  Bytes content(kLongestFileBytes);
  content.resize(std::fread(content.data(), 1, content.size(), in.get()));
  if (std::ferror(in.get()) != 0) {
    failOn(file);
  }
  return content;
}

Bytes passphraseOf(const std::string &file) {
  Bytes line = file.empty() ? Bytes() : contentOf(file);
  line.erase(std::find_if(line.begin(), line.end(), [](auto byte) { return byte == '\n' || byte == '\r'; }),
             line.end());
  return line;
}

// OpenSSL asks for the passphrase; without one it would ask the terminal.
int givePassphrase(char *out, int capacity, int /*writing*/, void *from) {
  const Bytes &passphrase = *static_cast<const Bytes *>(from);
  if (passphrase.empty() || passphrase.size() > static_cast<std::size_t>(capacity)) {
    return -1;
  }
  std::memcpy(out, passphrase.data(), passphrase.size());
  return static_cast<int>(passphrase.size());
}

int giveNone(char * /*out*/, int /*capacity*/, int /*writing*/, void * /*from*/) { return -1; }

} // namespace

krOpenSSL::EVPPKeyPtr readKeyFile(const std::string &file, const std::string &passphraseFile) {
  const Bytes content = contentOf(file);
  Bytes passphrase = passphraseOf(passphraseFile);
  const krOpenSSL::BIOPtr in(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  krOpenSSL::EVPPKeyPtr key(in ? PEM_read_bio_PrivateKey(in.get(), nullptr, givePassphrase, &passphrase) : nullptr);
  ERR_clear_error();
  if (!key) {
    fail(file, passphraseFile.empty() ? "is no private key, or is encrypted and has no \"passphrase_file\""
                                      : "is no private key, or the passphrase does not open it");
  }
  return key;
}

krOpenSSL::EVPPKeyPtr readPublicKeyFile(const std::string &file) {
  const krOpenSSL::BIOPtr in(BIO_new_file(file.c_str(), "r"));
  if (!in) {
    ERR_clear_error();
    failOn(file);
  }
  const krOpenSSL::X509Ptr certificate(PEM_read_bio_X509(in.get(), nullptr, giveNone, nullptr));
  BIO_seek(in.get(), 0);
  krOpenSSL::EVPPKeyPtr key(certificate ? X509_get_pubkey(certificate.get())
                                        : PEM_read_bio_PUBKEY(in.get(), nullptr, giveNone, nullptr));
  ERR_clear_error();
  if (!key) {
    fail(file, "is neither certificate nor public key");
  }
  return key;
}

} // namespace krHolder
