// Appending to a file that others may swap for a link at any moment.
#include "platform/Platform.h"
#include "platform/windows/RotationLock.h"
#include "platform/windows/Win32.h"

namespace krOpenSSL::platform {
namespace {

using Outcome = AppendFile::Outcome;

// A process that rotates the file changes it now and then; somebody who always changes it wants no lines.
constexpr int kAttempts = 16;

// The runtime library's mode "a", except that a link is opened itself and that every write goes to the end in
// one step, whichever process it comes from.
Handle openToAppend(const char *path, DWORD disposition) noexcept {
  return Handle(CreateFileA(path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES, kShareInPlace, nullptr, disposition,
                            FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// A file that is missing, on its way out, or opened by somebody for himself, may be between two steps of another
// process's rotation, which would delete what is made here: it comes first, though no line waits long for anybody.
Handle openToAppend(const char *path) noexcept {
  constexpr DWORD kMostMilliseconds = 1000;
  Handle there = openToAppend(path, OPEN_EXISTING);
  const DWORD reason = there ? ERROR_SUCCESS : GetLastError();
  if (reason == ERROR_FILE_NOT_FOUND || reason == ERROR_ACCESS_DENIED || reason == ERROR_SHARING_VIOLATION) {
    const RotationLock lock = takeRotationLock(kMostMilliseconds);
    there = openToAppend(path, OPEN_ALWAYS);
  }
  return there;
}

HANDLE asHandle(std::intptr_t file) noexcept {
  return reinterpret_cast<HANDLE>(file); // NOLINT(performance-no-int-to-ptr): what a Handle has released
}

// What stands at the path after the check: the open file, something that leads elsewhere, or none of the two, so
// look again.
std::optional<Outcome> judge(const char *path, const Handle &file) noexcept {
  const Handle now = openExisting(path, FILE_READ_ATTRIBUTES, kShareAll, kEntryItself);
  Found there;
  if (!now || !there.look(now) || there.isFolder()) {
    return std::nullopt;
  }
  if (!there.isPlainFile()) {
    return Outcome::redirected;
  }
  Found opened;
  return file && opened.look(file) && opened.isSameEntry(there) ? std::optional(Outcome::opened) : std::nullopt;
}

} // namespace

AppendFile::~AppendFile() { const Handle closes(asHandle(file_)); }

std::optional<std::uint64_t> AppendFile::size(const char *path) noexcept {
  const Handle file = openExisting(path, GENERIC_READ, kShareAll, kEntryItself);
  Found found;
  if (!file || !found.look(file) || found.isLink() || found.isFolder()) {
    return std::nullopt;
  }
  return found.size();
}

AppendFile::Outcome AppendFile::open(const char *path, bool (*isSafe)(Entry &checked)) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Handle file = openToAppend(path);
    if (!file) {
      return Outcome::failed;
    }
    if (Found found; !found.look(file) || !found.isPlainFile()) {
      file.close(); // the check is to replace it, which an open file would not let happen
    }
    Entry checked;
    if (!isSafe(checked)) {
      return Outcome::unsafe;
    }
    if (const auto outcome = judge(path, file)) {
      file_ = outcome == Outcome::opened ? reinterpret_cast<std::intptr_t>(file.release()) : -1;
      return *outcome;
    }
  }
  return Outcome::unsafe;
}

// One call, so that lines of several processes do not mix. Lines end as text files' do here.
void AppendFile::write(const char *text, std::size_t length) noexcept {
  std::array<char, 16384> bytes;
  DWORD count = 0;
  for (std::size_t i = 0; i < length && count + 2 <= bytes.size(); ++i) {
    if (text[i] == '\n') {
      bytes[count++] = '\r';
    }
    bytes[count++] = text[i];
  }
  DWORD written = 0;
  WriteFile(asHandle(file_), bytes.data(), count, &written, nullptr);
}

} // namespace krOpenSSL::platform
