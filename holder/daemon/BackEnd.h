// Where keys are kept: what a row of the configuration names.
#pragma once

#include "HeldKey.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace krHolder {

/// The words of a key's table that are its back end's, with their texts.
using Settings = std::map<std::string, std::string, std::less<>>;

struct BackEnd {
  std::string word;              ///< picks it in a key's table, and is a setting itself: "file"
  std::vector<std::string> more; ///< the settings that may stand beside it

  /// Finds a key. It is called when the holder starts, with every reload and by `krholder check`; the keys of before
  /// may still be in use.
  /// @throws std::exception whose text says what is wrong, for the person who starts the holder
  std::function<std::unique_ptr<const HeldKey>(const Settings &settings)> open;
};

using BackEnds = std::vector<BackEnd>;

/// A setting that has to be there.
/// @throws Unusable that names it
const std::string &required(const Settings &settings, std::string_view word);

/// The holder's own: PEM files, and keys on PKCS#11 tokens.
BackEnd fileBackEnd();
BackEnd tokenBackEnd();

} // namespace krHolder
