// The log file: where it is, when it is rotated, and opening it for one line.
//
// The state is constant-initialised and trivially destroyed, so that lines can come until the very end of
// the process.
#include "log/LogFile.h"

#include "log/LogLimit.h"
#include "log/LogLock.h"
#include "log/krLogFolderSecurity.h"

#include <array>
#include <cstdio>
#include <utility>

using namespace krOpenSSL;

namespace {

constexpr std::size_t kOldNameBytes = 259;

constinit std::array<char, platform::kKnownFolderBytes + sizeof "/Corvane/Logging"> folderPath{};
constinit std::array<char, folderPath.size() + sizeof "/krOpenSSL.log"> filePath{};
constinit bool isResolved = false;
constinit std::uint32_t limit = 0; // not read yet

constinit const krLogFolderSecurity *rotationSecurity = nullptr;

// A rotation may still come after this, from an exit handler: it makes another one.
struct RotationSecurityOwner {
  ~RotationSecurityOwner() {
    LogLock::ifFree([]() noexcept { delete std::exchange(rotationSecurity, nullptr); });
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

// Another process may have done so already, and written lines since.
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
  if (filePath[0] != '\0') {
    return filePath.data();
  }
  const krLogFolderSecurity security;
  std::array<char, platform::kKnownFolderBytes> data;
  if (platform::programDataFolder(data.data(), data.size())) {
    (void)std::snprintf(folderPath.data(), folderPath.size(), "%s%cCorvane%cLogging", data.data(), platform::kSeparator,
                        platform::kSeparator);
    (void)std::snprintf(filePath.data(), filePath.size(), "%s%ckrOpenSSL.log", folderPath.data(), platform::kSeparator);
  }
  return isFolderSafe(security) ? filePath.data() : "";
}

void krLogCheckSize() {
  const auto size = isResolved ? platform::fileSize(filePath.data()) : std::nullopt;
  if (!size) {
    return;
  }
  if (limit == 0) {
    limit = readLogLimit();
  }
  if (*size >= limit) {
    (void)krLogRotate();
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
    rotationSecurity = new krLogFolderSecurity;
  }
  platform::Entry checked;
  if (!isFolderSafe(*rotationSecurity) || !krLogCheckFile(*rotationSecurity, filePath.data(), checked) ||
      !isOldFileSafe(*rotationSecurity, oldPath.data())) {
    return 0;
  }
  // A file that the check has replaced is empty, and moves all the same.
  const std::uint32_t atLeast = isReplaceable(checked) ? 0 : limit;
  if (!platform::moveOver(filePath.data(), oldPath.data(), atLeast)) {
    return 0;
  }
  return krLogCreateFresh(filePath.data());
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
