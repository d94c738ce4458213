// By a program of its own: which OpenSSL this one is linked with says nothing about the servers'.
#include "SystemOpenSSL.h"

#include "wire/Stream.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace krHolder {
namespace {

std::string readAll(const Descriptor &from) {
  constexpr std::size_t kEnough = 4096;
  std::string text;
  std::array<char, 512> part;
  for (;;) {
    const ssize_t count = read(from.get(), part.data(), part.size());
    if (count > 0 && text.size() < kEnough) {
      text.append(part.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || (count < 0 && errno != EINTR)) {
      return text;
    }
  }
}

/// The program's process, or -1 where there is none.
pid_t startOpenSSL(const std::string &file, const Descriptor &errors) {
  std::array<std::string, 6> words{"openssl", "pkey", "-in", file, "-pubout", "-noout"};
  std::array<char *, words.size() + 1> arguments{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    arguments.at(i) = words.at(i).data();
  }
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&files, errors.get(), STDERR_FILENO);
  pid_t process = -1;
  if (posix_spawnp(&process, words.front().c_str(), &files, nullptr, arguments.data(), environ) != 0) {
    process = -1;
  }
  posix_spawn_file_actions_destroy(&files);
  return process;
}

// OpenSSL's queue has a line for each entry, in its notation; the last one is the cause.
std::string lastLine(std::string_view text) {
  text = text.substr(0, text.find_last_not_of('\n') + 1);
  const std::size_t before = text.rfind('\n');
  return std::string(before == std::string_view::npos ? text : text.substr(before + 1));
}

} // namespace

std::string complaintOfOpenSSL(const std::string &file) {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return {};
  }
  const Descriptor from(ends[0]);
  Descriptor to(ends[1]);
  const pid_t process = startOpenSSL(file, to);
  to = Descriptor();
  const std::string said = readAll(from);
  int status = 0;
  if (process == -1 || waitpid(process, &status, 0) != process || status == 0) {
    return {};
  }
  return said.empty() ? "nothing" : lastLine(said);
}

} // namespace krHolder
