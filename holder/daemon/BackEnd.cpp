// What back ends share.
#include "BackEnd.h"

#include "Failure.h"

namespace krHolder {

const std::string &required(const Settings &settings, std::string_view word) {
  const auto found = settings.find(word);
  if (found == settings.end()) {
    throw Unusable("the key has no \"" + std::string(word) + "\"");
  }
  return found->second;
}

} // namespace krHolder
