// The demo: its lines, its keys and its table.
#include "Demo.h"

#include "Authority.h"
#include "Failure.h"
#include "Handshake.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <random>
#include <sstream>

namespace delegated_tls {
namespace {

using namespace krOpenSSL;

// The keys, in the order the holder makes them; the software key is OpenSSL's.
enum Key : std::size_t { kRsa, kEc, kDsa, kSoftware };
constexpr std::array kKeyNames{"RSA-2048", "EC P-256", "DSA-2048", "RSA-2048"};

// Security level 0 is for the lines that show old versions and DSA.
struct Line {
  int version;
  const char *ciphers;
  const char *signatureAlgorithms;
  Key key;
  Way way;
  const char *scheme; ///< what the client has to see
};
constexpr std::array kLines{
    Line{TLS1_2_VERSION, "ECDHE-RSA-AES256-GCM-SHA384", "RSA+SHA256", kRsa, Way::provider, "rsa_pkcs1_sha256"},
    Line{TLS1_2_VERSION, "ECDHE-ECDSA-AES256-GCM-SHA384", "ECDSA+SHA256", kEc, Way::provider, "ecdsa_sha256"},
    Line{TLS1_3_VERSION, "ALL", "ECDSA+SHA256", kEc, Way::provider, "ecdsa_sha256"},
    Line{TLS1_3_VERSION, "ALL", "RSA-PSS+SHA256", kRsa, Way::provider, "rsa_pss_sha256"},
    Line{TLS1_3_VERSION, "ALL", "RSA-PSS+SHA256", kRsa, Way::callback, "rsa_pss_sha256"},
    Line{TLS1_1_VERSION, "ECDHE-RSA-AES256-SHA@SECLEVEL=0", "RSA+SHA1", kRsa, Way::provider, "rsa_pkcs1_md5_sha1"},
    Line{TLS1_2_VERSION, "DHE-DSS-AES256-GCM-SHA384@SECLEVEL=0", "DSA+SHA256:RSA+SHA256", kDsa, Way::provider,
         "dsa_sha256"},
    Line{TLS1_2_VERSION, "AES256-GCM-SHA384", "RSA+SHA256", kRsa, Way::callback, "none"},
    Line{TLS1_3_VERSION, "ALL", "RSA-PSS+SHA256", kSoftware, Way::software, "rsa_pss_sha256"},
};

std::vector<PrivateKey> makeHeldKeys() {
  std::vector<PrivateKey> keys;
  keys.push_back(PrivateKey::generateRsa());
  keys.push_back(PrivateKey::generateEc());
  keys.push_back(PrivateKey::generateDsa());
  return keys;
}

/// Everything the lines share. The holder is started first: its keys are made in its own process.
class Stage {
public:
  explicit Stage(HolderKind kind)
      : holder_(startHolder(kind, makeHeldKeys)), heldKeys_{HeldKey(*holder_, kRsa), HeldKey(*holder_, kEc),
                                                            HeldKey(*holder_, kDsa)},
        softwareKey_(generateSoftwareRsa()) {
    for (const Key key : {kRsa, kEc, kDsa}) {
      certificates_[key] = authority_.issue(publicKeyFrom(heldKeys_[key].publicHalf()).get());
    }
    certificates_[kSoftware] = authority_.issue(softwareKey_.get());
  }

  Scenario scenario(const Line &line) {
    return {line.version,
            line.ciphers,
            line.signatureAlgorithms,
            line.way,
            certificates_[line.key].get(),
            softwareKey_.get(),
            line.way == Way::software ? nullptr : &heldKeys_[line.key],
            &library_,
            authority_.certificate()};
  }

  std::string holderName() const { return holder_->name(); }

  /// Operations that the holder has carried out so far.
  unsigned operations() const {
    unsigned sum = 0;
    for (const HeldKey &key : heldKeys_) {
      sum += key.operations();
    }
    return sum;
  }

private:
  std::unique_ptr<KeyHolder> holder_;
  std::array<HeldKey, 3> heldKeys_;
  Library library_;
  RsaCallbacks callbacks_;
  EVPPKeyPtr softwareKey_;
  Authority authority_;
  std::array<X509Ptr, kKeyNames.size()> certificates_;
};

std::string keyUser(Way way) {
  switch (way) {
  case Way::provider:
    return "holder, provider";
  case Way::callback:
    return "holder, callback";
  case Way::software:
    break;
  }
  return "OpenSSL itself";
}

/// Narrow enough for the README at a width of 900 pixels.
void printRow(const std::array<std::string, 7> &cells) {
  static constexpr std::array kWidths{8, 30, 9, 19, 17, 9, 0};
  for (std::size_t i = 0; i < cells.size(); ++i) {
    std::cerr << std::left << std::setw(kWidths[i]) << cells[i];
  }
  std::cerr << '\n';
}

std::string rounded(double milliseconds) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(1) << milliseconds;
  return text.str();
}

/// A line holds when the client verified the server, saw the expected scheme, and the holder was asked
/// exactly when the key is its own.
void requireAsExpected(const Line &line, const Outcome &outcome, unsigned operations) {
  if (outcome.scheme != line.scheme) {
    throw Failure("the client saw " + outcome.scheme + " instead of " + line.scheme);
  }
  if ((operations != 0) != (line.way != Way::software)) {
    throw Failure("the holder carried out " + std::to_string(operations) + " operations");
  }
}

bool runLine(Stage &stage, const Line &line) {
  const unsigned before = stage.operations();
  try {
    const Outcome outcome = shakeHands(stage.scenario(line));
    requireAsExpected(line, outcome, stage.operations() - before);
    printRow({outcome.protocol, outcome.cipher, kKeyNames[line.key], outcome.scheme, keyUser(line.way), "yes",
              rounded(outcome.milliseconds)});
    return true;
  } catch (const Failure &failure) {
    printRow({"FAILED", line.ciphers, kKeyNames[line.key], line.scheme, keyUser(line.way), "NO", ""});
    std::cerr << "          " << failure.what() << '\n';
    return false;
  }
}

/// A new folder that nobody can have prepared.
std::filesystem::path newFolder() {
  const std::filesystem::path parent = std::filesystem::temp_directory_path();
  std::random_device random;
  for (;;) {
    std::filesystem::path folder = parent / ("delegated_tls_" + std::to_string(random()));
    if (std::filesystem::create_directory(folder)) {
      return folder;
    }
  }
}

std::filesystem::path folderForTrace() {
  try {
    return newFolder();
  } catch (const std::filesystem::filesystem_error &error) {
    const char *chosen = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe): there are no threads yet
    throw Failure("no folder for the trace can be made in the temporary directory" +
                  (chosen != nullptr ? " '" + std::string(chosen) + "' (TMPDIR)" : "") + ": " + error.code().message());
  }
}

/// Standard output, where the library's trace goes, sent to a file in a folder of its own.
class TraceFile {
public:
  TraceFile() : folder_(folderForTrace()) {
    const std::string name = (folder_ / "trace").string();
    if (std::freopen(name.c_str(), "w", stdout) == nullptr) {
      remove();
      throw Failure("no file for the trace could be made in " + folder_.string());
    }
    std::cerr << "the library's trace goes to " << name << ", which stays only when a handshake fails\n\n";
  }
  ~TraceFile() {
    if (!isKept_) {
      // An open file cannot be removed everywhere.
      if (std::freopen(kNullDevice, "w", stdout) != nullptr) {
        remove();
      }
    }
  }
  TraceFile(const TraceFile &) = delete;
  TraceFile &operator=(const TraceFile &) = delete;

  void keep() { isKept_ = true; }

private:
  static constexpr const char *kNullDevice = std::filesystem::path::preferred_separator == '/' ? "/dev/null" : "NUL";

  void remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  std::filesystem::path folder_;
  bool isKept_ = false;
};

} // namespace

bool runDemo(const DemoOptions &options) {
  std::optional<TraceFile> trace; // outlives the library
  if (options.quiet) {
    trace.emplace();
  }
  Stage stage(options.holder);
  std::cerr << "the private keys are held by " << stage.holderName() << "\n\n";
  printRow({"version", "suite", "key", "signature scheme", "key used by", "verified", "ms"});
  const auto good = std::ranges::count_if(kLines, [&stage](const Line &line) { return runLine(stage, line); });
  std::cerr << '\n' << good << " of " << kLines.size() << " handshakes as they should be\n";
  if (trace && good != std::ssize(kLines)) {
    trace->keep();
  }
  return good == std::ssize(kLines);
}

} // namespace delegated_tls
