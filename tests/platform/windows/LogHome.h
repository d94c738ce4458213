// A home whose names are texts, and what access lists it may have.
#pragma once

#include "platform/Platform.h"
#include "support/Home.h"

#include <fstream>
#include <functional>
#include <sstream>

namespace krTest {

struct LogHome : Home {
  const std::string file = Home::file.string();
  const std::string old = Home::old.string();
  const std::string other = target.string() + "-other"; ///< a file that no line may reach
};

/// Whether access lists that are put on files can be read back; Wine makes them of the file's mode.
bool keepsAccessLists();

/// Whether the entry has the owner and the access list, or as far as the system keeps them.
bool hasAccess(const std::string &path, const std::string &access);

constexpr const char *kProtected = "S-1-5-32-544, allow S-1-5-18 all, allow S-1-5-32-544 all, allow S-1-1-0 read";
constexpr const char *kForEveryone = ", allow S-1-1-0 all";

} // namespace krTest
