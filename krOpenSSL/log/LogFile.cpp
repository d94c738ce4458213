// The log file: where it is, when it is rotated, and opening it for one line.
//
// The state is constant-initialised and trivially destroyed, so that lines can come until the very end of
// the process. Each word of it is set in one step, once what it stands for is whole: a signal handler that forks in
// the middle of a line leaves it so to the child.
#include "log/LogFile.h"

#include "log/LogLimit.h"
#include "log/LogLock.h"
#include "log/krLogFolderSecurity.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>

using namespace krOpenSSL;

namespace {

constexpr std::size_t kOldNameBytes = 259;

constinit std::array<char, platform::kKnownFolderBytes + sizeof "/Corvane/Logging"> folderPath{};
constinit std::array<char, folderPath.size() + sizeof "/krOpenSSL.log"> filePath{};
constinit std::atomic<bool> isNamed{false};
constinit std::atomic<bool> isResolved{false};
constinit std::atomic<std::uint32_t> limit{0}; // not read yet

// Made without memory of its own: a thread that a fork did not copy may have left that locked.
alignas(krLogFolderSecurity) constinit std::array<std::byte, sizeof(krLogFolderSecurity)> rotationSecurityPlace{};
constinit std::atomic<const krLogFolderSecurity *> rotationSecurity{nullptr};

// A rotation may still come after this, from an exit handler: it makes another one.
struct RotationSecurityOwner {
  ~RotationSecurityOwner() {
    LogLock::ifFree([]() noexcept {
      if (const krLogFolderSecurity *security = rotationSecurity.exchange(nullptr); security != nullptr) {
        std::destroy_at(security);
      }
    });
  }
};
const RotationSecurityOwner owner{};

bool isFolderSafe(const krLogFolderSecurity &security) { return krLogCheckFolder(security, folderPath.data()); }

bool isReplaceable(const platform::Entry &entry) noexcept {
  return entry.kind == platform::EntryKind::link || entry.links > 1;
}

bool isOldFileSafe(const krLogFolderSecurity &security, const char *file) {
  platform::Entry found;
  return krLogCheckFile(security, file, found);
}

// Replaces a file that leads elsewhere. It is looked at again first: another process may have replaced it since, and
// written lines that a second replacement would lose.
void secureRedirected() {
  if (isReplaceable(platform::inspect(filePath.data()))) {
    (void)krLogSecurePath(krLogFolderSecurity{}, filePath.data());
  }
}

bool isSafe(platform::Entry &checked) {
  const krLogFolderSecurity security;
  return isFolderSafe(security) && krLogCheckFile(security, filePath.data(), checked);
}

} // namespace

const char *krLogResolvePath() {
  if (isNamed) {
    return filePath.data();
  }
  const krLogFolderSecurity security;
  std::array<char, platform::kKnownFolderBytes> data;
  if (platform::programDataFolder(data.data(), data.size())) {
    (void)std::snprintf(folderPath.data(), folderPath.size(), "%s%cCorvane%cLogging", data.data(), platform::kSeparator,
                        platform::kSeparator);
    (void)std::snprintf(filePath.data(), filePath.size(), "%s%ckrOpenSSL.log", folderPath.data(), platform::kSeparator);
    isNamed = true;
  }
  return isFolderSafe(security) ? filePath.data() : "";
}

void krLogCheckSize(platform::AppendFile &stream) {
  const auto size = isResolved ? stream.size(filePath.data()) : std::nullopt;
  if (!size) {
    return;
  }
  if (limit == 0) {
    limit = readLogLimit();
  }
  if (*size >= limit) {
    (void)krLogRotate();
    (void)stream.size(filePath.data()); // another file by now, or another folder
  }
}

int krLogRotate() {
  std::array<char, kOldNameBytes> oldPath;
  const int length = std::snprintf(oldPath.data(), oldPath.size(), "%s.old", filePath.data());
  // A name that had to be cut could be anybody's.
  if (length < 0 || static_cast<std::size_t>(length) >= oldPath.size()) {
    return 0;
  }
  if (rotationSecurity == nullptr) {
    rotationSecurity = new (rotationSecurityPlace.data()) krLogFolderSecurity;
  }
  const krLogFolderSecurity &security = *rotationSecurity;
  if (!isFolderSafe(security)) {
    return 0;
  }
  const platform::Rotation rotation(folderPath.data());
  platform::Entry checked;
  if (!rotation || !krLogCheckFile(security, filePath.data(), checked) || !isOldFileSafe(security, oldPath.data())) {
    return 0;
  }
  // A file that the check has replaced is empty, and moves all the same. Whoever keeps others from rotating does not
  // have the file grow for good.
  const std::uint64_t full = std::uint64_t{limit} * (rotation.isAlone() ? 1U : 2U);
  const std::uint64_t atLeast = isReplaceable(checked) ? 0 : full;
  if (!platform::moveOver(filePath.data(), oldPath.data(), atLeast)) {
    return 0;
  }
  const int started = krLogCreateFresh(filePath.data());
  platform::syncFolder(filePath.data()); // last: the disk takes its time, and others have lines
  return started;
}

int krLogOpenAppend(platform::AppendFile &stream) {
  if (!isResolved) {
    isResolved = *krLogResolvePath() != '\0';
  }
  if (!isResolved) {
    return -1;
  }
  switch (stream.open(filePath.data(), isSafe)) {
  case platform::AppendFile::Outcome::opened:
    return 0;
  case platform::AppendFile::Outcome::failed:
    return -1;
  case platform::AppendFile::Outcome::redirected:
    secureRedirected();
    return -2;
  case platform::AppendFile::Outcome::unsafe:
    break;
  }
  return -2;
}
