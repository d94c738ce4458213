// The system's loader of modules.
#pragma once

#include <filesystem>
#include <string>

namespace fips_switch {

/// Where the library looks for wolfEngine.
std::filesystem::path wolfEngineFile();

/// Loads the module for the life of the process. @return null, with the loader's own words in @p refusal
void *loadModule(const std::filesystem::path &file, std::string &refusal);

/// @return a data object of the module; null when it exports none of that name
void *moduleObject(void *module, const char *name);

} // namespace fips_switch
