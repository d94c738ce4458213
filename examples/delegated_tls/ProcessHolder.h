// A key holder in a process of its own, reached over a socket pair.
#pragma once

#include "KeyHolder.h"

namespace delegated_tls {

extern const bool kProcessHolderAvailable;

/// Forks the holder, which makes its keys itself: they never are in this process. Throws what the holder
/// failed with.
std::unique_ptr<KeyHolder> startProcessHolder(const KeyMaker &makeKeys);

} // namespace delegated_tls
