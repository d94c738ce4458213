// `delegated_tls demo`: one handshake for each way of signing, and a table of what happened.
#pragma once

#include "KeyHolder.h"

namespace delegated_tls {

struct DemoOptions {
  bool quiet = false; ///< the library's trace goes to a file
  HolderKind holder = defaultHolderKind();
};

/// Prints the table to standard error; true when every line's handshake was what it should be.
bool runDemo(const DemoOptions &options);

} // namespace delegated_tls
