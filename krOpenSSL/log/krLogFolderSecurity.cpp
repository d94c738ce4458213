// Protection of the log's folder and files against links.
#include "log/krLogFolderSecurity.h"

#include <filesystem>
#include <stdexcept>

using namespace krOpenSSL;
using platform::EntryKind;

namespace {

template <typename Query> auto ask(const char *operation, Query query, const char *path) {
  std::error_code error;
  const auto answer = query(path, error);
  if (error) {
    throw std::filesystem::filesystem_error(operation, path, error);
  }
  return answer;
}

} // namespace

krLogFolderSecurity::krLogFolderSecurity() {
  if (!platform::prepareProtection(protection_)) {
    throw std::runtime_error("Failed to SetEntriesInAcl");
  }
}

krLogFolderSecurity::~krLogFolderSecurity() { platform::releaseProtection(protection_); }

bool krLogFolderSecurity::protect(const char *path) const noexcept {
  return platform::giveToAdministrators(path) && platform::protect(path, protection_);
}

bool krLogCheckFolder(const krLogFolderSecurity &security, const char *folder) {
  return ask("symlink_status", platform::linkStatus, folder) != EntryKind::link || krLogSecurePath(security, folder);
}

bool krLogCheckFile(const krLogFolderSecurity &security, const char *file) {
  if (ask("exists", platform::status, file) == EntryKind::missing) {
    return true;
  }
  const EntryKind kind = ask("symlink_status", platform::linkStatus, file);
  const std::uint64_t links = ask("hard_link_count", platform::hardLinks, file);
  return (kind != EntryKind::link && links < 2) || krLogSecurePath(security, file);
}

bool krLogSecurePath(const krLogFolderSecurity &security, const char *path) {
  const EntryKind target = ask("status", platform::status, path);
  if (!platform::removeEntry(path)) {
    return false;
  }
  (target == EntryKind::folder ? platform::createFolder : platform::createFile)(path);
  return security.protect(path);
}

int krLogCreateFresh(const char *file) { return platform::startFileForEveryone(file) ? 1 : 0; }
