// The process that has the keys and starts the key holder's processes: one, and another when that has ended. It is
// forked before the library is set up and before there are threads, which cannot be made up for later.
#pragma once

#include "Descriptor.h"
#include "KeyHolder.h"

#include <sys/types.h>

namespace delegated_tls {

/// What the nursery tells.
struct NurseryNews {
  enum class Kind : std::uint32_t { none, keys, failure, started, ended } kind = Kind::none;
  pid_t process = 0; ///< the holder's that started, or ended
  std::string text;  ///< how it ended: "was killed by signal 9"; why there are no keys
  std::vector<Bytes> publicHalves;
  Descriptor socket; ///< the way to the holder that started: a stream of frames
};

class Nursery {
public:
  /// Forks it. The first news are the keys.
  explicit Nursery(const KeyMaker &makeKeys);

  /// It ends with its holder.
  ~Nursery();
  Nursery(const Nursery &) = delete;
  Nursery &operator=(const Nursery &) = delete;

  /// Asks for a holder. The news tell of it.
  void start() const;

  /// The next news, waited for until the deadline; `none` when there are none. The nursery's own end is a failure.
  NurseryNews next(Deadline deadline) const;

  /// To be waited on for reading.
  int descriptor() const { return control_.get(); }

private:
  Descriptor control_;
  pid_t process_ = 0;
};

} // namespace delegated_tls
