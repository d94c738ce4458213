// Every function of the platform, written down and answered as the test says.
#include "support/FakePlatform.h"

#include "platform/ForkLock.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <utility>

namespace krTest::fakePlatform {
namespace {

// Whether the call is to succeed.
bool note(const std::string &call, const std::string &path = {}) {
  errno = EIO; // as the system's calls may leave it
  calls.push_back(path.empty() ? call : call + " " + path.substr(path.find_last_of("/\\") + 1));
  return !failing.contains(call);
}

// Never destroyed: exit handlers lock, too.
std::recursive_mutex &mutexOf(const krOpenSSL::platform::ForkLock *lock) {
  static auto &guard = *new std::mutex;
  static auto &mutexes = *new std::map<const krOpenSSL::platform::ForkLock *, std::recursive_mutex>;
  const std::scoped_lock guarded(guard);
  return mutexes[lock];
}

std::string generic(const char *path) {
  std::string text = path;
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

Entry query(const std::string &call, const char *path) {
  if (!note(call, path)) {
    throw std::filesystem::filesystem_error(call, path, std::make_error_code(std::errc::permission_denied));
  }
  const auto found = entries.find(generic(path));
  return found == entries.end() ? Entry{} : found->second;
}

} // namespace

Bytes systemBytes(std::size_t call) { return Bytes(drawn.at(call - 1), static_cast<unsigned char>(call)); }

} // namespace krTest::fakePlatform

namespace krOpenSSL::platform {

namespace fake = krTest::fakePlatform;

bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept {
  if (fake::hasRandom) {
    fake::drawn.push_back(length);
    std::fill_n(buffer, length, static_cast<unsigned char>(fake::drawn.size()));
  }
  return fake::hasRandom;
}

bool ForkLock::lock() noexcept {
  fake::mutexOf(this).lock();
  return std::exchange(fake::forked, false);
}

std::optional<bool> ForkLock::tryLock() noexcept {
  return fake::mutexOf(this).try_lock() ? std::optional(std::exchange(fake::forked, false)) : std::nullopt;
}

bool ForkLock::unlock() noexcept {
  fake::mutexOf(this).unlock();
  return true;
}

bool ForkLock::isHeld() const noexcept { return !fake::forked; }

bool ForkLock::noticesForks() noexcept { return fake::noticesForks; }

std::int64_t processId() noexcept { return 1; }

void forgetNumbers() noexcept {}

bool holdAcrossForks(void (* /*before*/)(), void (* /*after*/)()) noexcept { return true; }

std::uint32_t threadId() noexcept { return 0xabc; }

LocalTime localTime() noexcept { return {2031, 2, 3, 4, 5, 6, 7}; }

bool programDataFolder(char *path, std::size_t size) noexcept {
  (void)std::snprintf(path, size, "%s", fake::programData.c_str());
  return fake::note("programDataFolder");
}

bool registryText(const char *key, const char *name, char *text, std::size_t size) noexcept {
  (void)std::snprintf(text, size, "%s", fake::logSize.value_or("").c_str());
  return fake::note(std::string("registryText ") + key + " " + name) && fake::logSize.has_value();
}

Entry inspect(const char *path) { return fake::query("inspect", path); }

EntryKind status(const char *path) { return fake::query("status", path).target; }

EntryKind linkStatus(const char *path) { return fake::query("linkStatus", path).kind; }

std::optional<std::uint64_t> AppendFile::size(const char *path) noexcept {
  const auto found = fake::entries.find(fake::generic(path));
  return fake::note("size", path) && found != fake::entries.end() ? std::optional(found->second.size) : std::nullopt;
}

bool removeEntry(const char *path) noexcept {
  return fake::note("removeEntry", path) && fake::entries.erase(fake::generic(path)) == 1;
}

void createFolder(const char *path) noexcept { fake::note("createFolder", path); }

void createFile(const char *path) noexcept { fake::note("createFile", path); }

Rotation::Rotation(const char * /*folder*/) noexcept {}
Rotation::~Rotation() = default;
Rotation::operator bool() const noexcept { return true; }
bool Rotation::isAlone() const noexcept { return true; }

bool moveOver(const char *from, const char * /*to*/, std::uint64_t atLeast) noexcept {
  return fake::note("moveOver", from + ("/" + std::to_string(atLeast)));
}

void syncFolder(const char *path) noexcept { fake::note("syncFolder", path); }

bool startFileForEveryone(const char *path) noexcept { return fake::note("startFileForEveryone", path); }

bool prepareProtection(Protection & /*protection*/) noexcept { return fake::note("prepareProtection"); }

void releaseProtection(Protection & /*protection*/) noexcept { fake::note("releaseProtection"); }

bool giveToAdministrators(const char *path) noexcept { return fake::note("giveToAdministrators", path); }

bool protect(const char *path, const Protection & /*protection*/) noexcept { return fake::note("protect", path); }

AppendFile::~AppendFile() {
  if (file_ >= 0) {
    fake::note("close");
  }
}

AppendFile::Outcome AppendFile::open(const char *path, bool (*isSafe)(Entry &checked)) {
  if (!fake::note("open", path)) {
    return Outcome::failed;
  }
  file_ = 0;
  Entry checked;
  if (!isSafe(checked)) {
    return Outcome::unsafe;
  }
  if (fake::opening == Outcome::redirected) {
    fake::entries[fake::generic(path)].kind = EntryKind::link;
  }
  return fake::opening;
}

void AppendFile::write(const char *text, std::size_t length) noexcept { fake::written.append(text, length); }

bool commonProgramFilesFolder(char *path, std::size_t size) noexcept {
  (void)std::snprintf(path, size, "%s", "/nowhere");
  return fake::note("commonProgramFilesFolder");
}

const char *const kModuleSuffix = ".so";
ModuleAhead::ModuleAhead(const char * /*path*/) noexcept {}
ModuleAhead::~ModuleAhead() = default;
ModuleAhead::operator bool() const noexcept { return true; }
void *loadedModule(const char * /*path*/) noexcept { return nullptr; }
void *moduleObject(void * /*module*/, const char * /*name*/) noexcept { return nullptr; }
void freeModule(void * /*module*/) noexcept {}
bool stayLoaded() noexcept { return true; }

} // namespace krOpenSSL::platform
