// The holder's configuration, a TOML file.
#pragma once

#include "BackEnd.h"
#include "Policy.h"

#include <map>
#include <string>

namespace krHolder {

struct KeyConfig {
  std::string place; ///< file, line and column of the word that picks the back end
  decltype(BackEnd::open) open;
  Settings settings;    ///< for open
  double perSecond = 0; ///< 0: no limit
  Policy policy;
};

struct Config {
  std::string socket = "/run/krholder/socket"; ///< unless the system's service manager passes one
  std::string metrics;                         ///< a file; empty: none
  std::size_t connections = 256;
  std::map<std::string, KeyConfig> keys; ///< by name
};

/// @param backEnds  whose words a key's table may have
/// @throws Unusable with file, line and column for what is not as docs/krholder.md has it
Config readConfig(const std::string &file, const BackEnds &backEnds);

} // namespace krHolder
