// What the library needs of the operating system, named for the need. posix/ and windows/ answer it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace krOpenSSL::platform {

/// Fills the buffer from the system's random source; false when it has none to give.
bool systemRandom(unsigned char *buffer, std::uint32_t length) noexcept;

/// Has @p before run in the thread that forks, ahead of every fork of this process from now on, and
/// @p after once it is done, in the same thread and in the child. Call it once for a pair.
///
/// posix/ only, where processes fork.
///
/// @return false when the system could not arrange it
bool holdAcrossForks(void (*before)(), void (*after)()) noexcept;

/// The numbers of this process and of the calling thread.
std::int64_t processId() noexcept;
std::uint32_t threadId() noexcept;

/// Has the two above ask the system again: in a child, which has other numbers than its parent. posix/ only.
void forgetNumbers() noexcept;

struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;
};

/// The time now, in the machine's time zone. One thread at a time, or what has interrupted it.
LocalTime localTime() noexcept;

inline constexpr std::size_t kKnownFolderBytes = 1024; ///< the room for the path of a known folder

/// What separates the names in a path.
#ifdef _WIN32
inline constexpr char kSeparator = '\\';
#else
inline constexpr char kSeparator = '/';
#endif

/// The machine-wide folder for the data of programs, without a separator at its end.
///
/// @return false, with @p path unspecified, when it is not known
bool programDataFolder(char *path, std::size_t size) noexcept;

/// The same for the folder that programs share modules in.
bool commonProgramFilesFolder(char *path, std::size_t size) noexcept;

/// What the file name of a loadable module ends in.
extern const char *const kModuleSuffix;

/// Reads a text value of the machine's settings (HKEY_LOCAL_MACHINE, the 32-bit view).
///
/// @return false, with @p text unspecified, when there is none, it is not a text (REG_SZ) or too long
bool registryText(const char *key, const char *name, char *text, std::size_t size) noexcept;

enum class EntryKind { missing, file, folder, link, other };

/// A file as the check of it finds it.
struct Entry {
  EntryKind target = EntryKind::missing; ///< what stands at the end of all links
  EntryKind kind = EntryKind::missing;   ///< what stands at the path itself
  std::uint64_t links = 0;               ///< how many names it has; a folder has one
  std::uint64_t device = 0, number = 0;  ///< which entry it is; posix/ only
};

/// What stands at the path. A missing entry is no error; without a target the rest need not be known.
///
/// @throws std::filesystem::filesystem_error for the operation exists or symlink_status
Entry inspect(const char *path);

/// What stands at the end of all links; may throw the error for the operation status.
EntryKind status(const char *path);

/// What stands at the path itself, a symbolic link or a junction being a link; may throw the error for the
/// operation symlink_status.
EntryKind linkStatus(const char *path);

/// Removes the entry itself, never what a link points to; false when nothing was removed.
bool removeEntry(const char *path) noexcept;

/// Puts an empty folder or file where nothing stands. Whether that worked shows in what follows.
void createFolder(const char *path) noexcept;
void createFile(const char *path) noexcept;

/// What a rotation in a folder holds for its life. On windows/ the folder, which then is one, no link, and stays in its
/// place; and the lock that processes take turns by, unless another one has it. On posix/ nothing: moveOver does it
/// all.
class Rotation {
public:
  explicit Rotation(const char *folder) noexcept;
  ~Rotation();
  Rotation(const Rotation &) = delete;
  Rotation &operator=(const Rotation &) = delete;

  /// False when a link, or nothing, stands there.
  explicit operator bool() const noexcept;

  /// False when another process may be rotating.
  bool isAlone() const noexcept;

private:
  // windows/ only: an empty one of either kind
  [[maybe_unused]] std::intptr_t lock_ = 0;
  [[maybe_unused]] std::intptr_t folder_ = -1;
};

/// Moves a file over another one of its folder. Where other processes can move it at the same time, only if
/// it still is at least so long: the next file of the name is not for moving. On windows/ durably; on posix/
/// a file as startFileForEveryone makes takes its place in the same step, where the file system has such a step.
bool moveOver(const char *from, const char *to, std::uint64_t atLeast) noexcept;

/// Has the disk carry out what was done to the file's name; windows/ has done so by then.
void syncFolder(const char *file) noexcept;

/// Starts an empty file that everyone may read and write, in place of what stands there.
bool startFileForEveryone(const char *path) noexcept;

/// What it takes to protect an entry: its access list (the system and its administrators everything,
/// everyone reading) and the process token whose take-ownership privilege is on. posix/ needs neither.
struct Protection {
  void *accessList = nullptr;
  void *token = nullptr;
};

/// @return false when the access list could not be made; the rest may fail unseen
bool prepareProtection(Protection &protection) noexcept;
void releaseProtection(Protection &protection) noexcept;

/// Makes the administrators the owner of a folder, or of a file with one name.
bool giveToAdministrators(const char *path) noexcept;

/// Puts the access list on a folder, or on a file with one name.
bool protect(const char *path, const Protection &protection) noexcept;

/// A file open for appending; closed when the object goes.
class AppendFile {
public:
  /// redirected: a link, or a further name of the file, came in between the check and the opening.
  enum class Outcome { opened, failed, unsafe, redirected };

  AppendFile() noexcept = default;
  ~AppendFile();
  AppendFile(const AppendFile &) = delete;
  AppendFile &operator=(const AppendFile &) = delete;

  /// The size of the file at the path; none when it is not there, cannot be had or is no file. On posix/ what
  /// this sees counts as the look that comes before an opening which follows.
  std::optional<std::uint64_t> size(const char *path) noexcept;

  /// Opens the file, made if it is missing, and has @p isSafe check folder and file on the way and say
  /// which entry it found: after the opening on windows/, where the open file has to be what stands there
  /// once the check has passed; before it on posix/, where the file that is opened has to be the entry that
  /// passed. What @p isSafe throws passes through.
  Outcome open(const char *path, bool (*isSafe)(Entry &checked));

  /// Hands the whole text to the system; a text that does not fit on the disk is lost.
  void write(const char *text, std::size_t length) noexcept;

private:
  std::intptr_t file_ = -1;
  // posix/ only: where size looked, and what it saw
  [[maybe_unused]] std::intptr_t folder_ = -1;
  Entry seen_;
};

/// Has a module loaded, for its life, that somebody else is about to load by the same path. On windows/ that one would
/// have what the module needs looked for in the current folder and PATH too: this takes it from the module's own folder
/// and the system's alone. On posix/ nothing is loaded: nobody looks there in such places.
class ModuleAhead {
public:
  explicit ModuleAhead(const char *path) noexcept;
  ~ModuleAhead();
  ModuleAhead(const ModuleAhead &) = delete;
  ModuleAhead &operator=(const ModuleAhead &) = delete;

  /// False when the module cannot be loaded so.
  explicit operator bool() const noexcept;

private:
  [[maybe_unused]] void *module_ = nullptr; // windows/ only
};

/// A module of that path which this process has loaded already; null when there is none. It stays loaded until
/// freeModule. On windows/ the data objects of "NAME.dll" are those of "NAME-x64.dll" where that is loaded.
void *loadedModule(const char *path) noexcept;

/// The data object of that name in the module; null when it has none.
void *moduleObject(void *module, const char *name) noexcept;

void freeModule(void *module) noexcept;

/// Has this library stay loaded to the end of the process; false when that cannot be had.
bool stayLoaded() noexcept;

} // namespace krOpenSSL::platform
