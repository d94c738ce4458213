// One process at a time rotates the log, in a folder that stays where it is.
#include "platform/Platform.h"
#include "platform/windows/Access.h"
#include "platform/windows/RotationLock.h"

namespace krOpenSSL::platform {
namespace {

// Of the machine, not of a session; whoever may write to the log may wait for it.
Handle openMutex() noexcept {
  constexpr DWORD kUse = SYNCHRONIZE | MUTEX_MODIFY_STATE;
  ForEveryone access(kUse);
  HANDLE mutex = access ? CreateMutexExW(access.get(), L"Global\\krOpenSSL.log", 0, kUse) : nullptr;
  return mutex != nullptr ? Handle(mutex) : Handle{};
}

Handle holdFolder(const char *path) noexcept {
  Handle folder = openExisting(path, GENERIC_READ, kShareInPlace, kEntryItself);
  Found found;
  const bool isFolder = folder && found.look(folder) && found.isFolder() && !found.isLink();
  return isFolder ? std::move(folder) : Handle{};
}

HANDLE asHandle(std::intptr_t handle) noexcept {
  return reinterpret_cast<HANDLE>(handle); // NOLINT(performance-no-int-to-ptr): what was one
}

} // namespace

RotationLock takeRotationLock(DWORD mostMilliseconds) noexcept {
  Handle mutex = openMutex();
  const DWORD result = mutex ? WaitForSingleObject(mutex.get(), mostMilliseconds) : WAIT_FAILED;
  return RotationLock(result == WAIT_OBJECT_0 || result == WAIT_ABANDONED ? mutex.release() : nullptr);
}

Rotation::Rotation(const char *folder) noexcept
    : lock_(reinterpret_cast<std::intptr_t>(takeRotationLock(0).release())),
      folder_(reinterpret_cast<std::intptr_t>(holdFolder(folder).release())) {}

Rotation::~Rotation() {
  const RotationLock gives(asHandle(lock_));
  const Handle closes(asHandle(folder_));
}

Rotation::operator bool() const noexcept { return folder_ != -1; }

bool Rotation::isAlone() const noexcept { return lock_ != 0; }

} // namespace krOpenSSL::platform
