// Why krFipsModeOn failed: the library's own steps, taken once more with words for each.
#pragma once

#include <string>

namespace fips_switch {

/// Loads and initialises wolfEngine, without making it a default. To be called after krFipsModeOn failed.
///
/// @return the step that failed and why, and a line with a hint
std::string diagnoseWolfEngine();

} // namespace fips_switch
