// Protection of the log's folder and files against links.
#include "log/krLogFolderSecurity.h"

#include <stdexcept>

using namespace krOpenSSL;
using platform::EntryKind;

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
  return platform::linkStatus(folder) != EntryKind::link || krLogSecurePath(security, folder);
}

bool krLogCheckFile(const krLogFolderSecurity &security, const char *file, platform::Entry &found) {
  found = platform::inspect(file);
  if (found.target == EntryKind::missing) {
    return true;
  }
  return (found.kind != EntryKind::link && found.links < 2) || krLogSecurePath(security, file);
}

bool krLogSecurePath(const krLogFolderSecurity &security, const char *path) {
  const EntryKind target = platform::status(path);
  if (!platform::removeEntry(path)) {
    return false;
  }
  (target == EntryKind::folder ? platform::createFolder : platform::createFile)(path);
  return security.protect(path);
}

int krLogCreateFresh(const char *file) { return platform::startFileForEveryone(file) ? 1 : 0; }
