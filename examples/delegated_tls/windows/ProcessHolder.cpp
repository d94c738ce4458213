// Processes do not fork here, so the holder is one in memory.
#include "ProcessHolder.h"

#include "Failure.h"

namespace delegated_tls {

const bool kProcessHolderAvailable = false;

std::unique_ptr<KeyHolder> startProcessHolder(const KeyMaker & /*makeKeys*/) {
  throw Failure("there is no key holder in a process of its own on Windows: use --holder memory");
}

} // namespace delegated_tls
