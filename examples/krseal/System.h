// What krseal asks of the operating system.
#pragma once

#include <cstdio>
#include <filesystem>

namespace krseal {

/// Turns the library's trace off, which would stand between this program's answers; before anything else of the library
/// is called.
void silenceTrace();

/// Whether somebody looks at standard error.
bool errorsAreSeen();

enum class Access { everyone, owner };

/// Makes a file that must not be there yet.
/// @param access  for everyone as the system has it otherwise; on Windows its folder's list holds in both cases
/// @return null when that fails: errno tells why
std::FILE *makeFile(const std::filesystem::path &file, Access access);

} // namespace krseal
