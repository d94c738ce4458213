// The Win32 declarations, and handles and paths as this folder uses them.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

namespace krOpenSSL::platform {

/// Owns a kernel handle.
class Handle {
public:
  explicit Handle(HANDLE handle = INVALID_HANDLE_VALUE) noexcept : handle_(handle) {}
  Handle(Handle &&other) noexcept : handle_(other.release()) {}
  Handle &operator=(Handle &&other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Handle() { close(); }

  explicit operator bool() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
  [[nodiscard]] HANDLE get() const noexcept { return handle_; }
  [[nodiscard]] HANDLE release() noexcept { return std::exchange(handle_, INVALID_HANDLE_VALUE); }
  void close() noexcept {
    if (HANDLE handle = release(); handle != INVALID_HANDLE_VALUE) {
      CloseHandle(handle);
    }
  }

private:
  HANDLE handle_;
};

inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
/// While such a handle is open nobody renames or removes the entry, if it was opened for reading or writing.
inline constexpr DWORD kShareInPlace = FILE_SHARE_READ | FILE_SHARE_WRITE;

/// What opens folders too, and a link itself.
inline constexpr DWORD kEntryItself = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

inline Handle openExisting(const char *path, DWORD access, DWORD share, DWORD flags) noexcept {
  return Handle(CreateFileA(path, access, share, nullptr, OPEN_EXISTING, flags, nullptr));
}

/// What the system tells of an open entry.
struct Found {
  BY_HANDLE_FILE_INFORMATION information{};
  FILE_ID_INFO id{}; ///< no volume where the file system has none
  DWORD reparseTag = 0;

  /// False, with the last error set, when it tells nothing.
  bool look(const Handle &entry) noexcept {
    FILE_ATTRIBUTE_TAG_INFO tag{};
    if (GetFileInformationByHandle(entry.get(), &information) == 0) {
      return false;
    }
    if (GetFileInformationByHandleEx(entry.get(), FileIdInfo, &id, sizeof id) == 0) {
      id = {};
    }
    if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      const bool known = GetFileInformationByHandleEx(entry.get(), FileAttributeTagInfo, &tag, sizeof tag) != 0;
      reparseTag = known ? tag.ReparseTag : IO_REPARSE_TAG_SYMLINK; // what cannot be told could lead anywhere
    }
    return true;
  }

  /// What stands for another entry: a symbolic link, a junction and others of their kind.
  [[nodiscard]] bool isLink() const noexcept {
    constexpr DWORD kNameSurrogate = 0x20000000;
    return (reparseTag & kNameSurrogate) != 0;
  }
  [[nodiscard]] bool isFolder() const noexcept {
    return (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }
  /// A file of one name: what is written to it goes nowhere else.
  [[nodiscard]] bool isPlainFile() const noexcept {
    return !isLink() && !isFolder() && information.nNumberOfLinks == 1;
  }
  [[nodiscard]] std::uint64_t size() const noexcept {
    return std::uint64_t{information.nFileSizeHigh} << 32U | information.nFileSizeLow;
  }
  [[nodiscard]] bool isSameEntry(const Found &other) const noexcept {
    return std::memcmp(&id, &other.id, sizeof id) == 0 && // the rest is not all of it on every file system
           information.dwVolumeSerialNumber == other.information.dwVolumeSerialNumber &&
           information.nFileIndexHigh == other.information.nFileIndexHigh &&
           information.nFileIndexLow == other.information.nFileIndexLow;
  }
};

/// A path for the calls that take wide characters only, converted as the others convert theirs, so that both
/// name the same entry. ASCII is widened as it is.
class WidePath {
public:
  explicit WidePath(const char *path) noexcept {
    constexpr UINT kAsFiles = CP_ACP;
    if (MultiByteToWideChar(kAsFiles, MB_ERR_INVALID_CHARS, path, -1, text_.data(), static_cast<int>(text_.size())) ==
        0) {
      text_[0] = L'\0';
    }
  }

  /// False for a path that is too long or no text.
  explicit operator bool() const noexcept { return text_[0] != L'\0'; }
  [[nodiscard]] wchar_t *get() noexcept { return text_.data(); }

private:
  std::array<wchar_t, 2048> text_;
};

} // namespace krOpenSSL::platform
