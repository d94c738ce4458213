// Protection of the log's folder and files against links: what was put in their place to redirect the log
// goes, and a real, empty folder or file of the administrators takes its place.
#pragma once

#include "platform/Platform.h"

/// What a replacement needs, for as long as it lives: the access list, and the take-ownership privilege.
class krLogFolderSecurity {
public:
  /// @throws std::runtime_error when the access list cannot be made
  krLogFolderSecurity();
  ~krLogFolderSecurity();
  krLogFolderSecurity(const krLogFolderSecurity &) = delete;
  krLogFolderSecurity &operator=(const krLogFolderSecurity &) = delete;

  /// Gives the entry to the administrators and, if that worked, puts the access list on it.
  bool protect(const char *path) const noexcept;

private:
  krOpenSSL::platform::Protection protection_;
};

/// Whether the folder is no link, or a link that has been replaced. A missing folder passes.
/// @throws std::filesystem::filesystem_error when the system cannot tell, as do the two below
bool krLogCheckFolder(const krLogFolderSecurity &security, const char *folder);

/// Whether the file is no link and has one name only, or has been replaced. A missing file passes.
/// @param found  what stood there
bool krLogCheckFile(const krLogFolderSecurity &security, const char *file, krOpenSSL::platform::Entry &found);

/// Removes the entry itself and puts an empty, protected one in its place: a folder where a link to a folder
/// was, else a file.
bool krLogSecurePath(const krLogFolderSecurity &security, const char *path);

/// Starts the file that follows a rotated one, which everyone may write to.
/// @return 1 when it is there, else 0
int krLogCreateFresh(const char *file);
