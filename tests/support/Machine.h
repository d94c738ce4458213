// What tests change on the machine, or have the library believe of it.
#pragma once

#include <filesystem>

namespace krTest::machine {

/// Sets a variable of the environment.
void setVariable(const char *name, const char *value);

/// Makes the library's log folder, empty, in a program-data folder that it will find.
std::filesystem::path newProgramData();
void removeProgramData(const std::filesystem::path &folder);

/// Has the library find the modules that stand below @p built; where they are then.
std::filesystem::path provideModules(const std::filesystem::path &built);
/// Has it find none.
void loseModules();

/// The name of a library that nothing else loads.
extern const char *const kAnyLibrary;
void *loadLibrary(const char *name);

} // namespace krTest::machine
