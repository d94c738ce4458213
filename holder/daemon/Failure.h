// Why a request is not done, and why the holder does not start.
#pragma once

#include "wire/Message.h"

#include <stdexcept>
#include <string>

namespace krHolder {

/// A request that is answered with a status and a text.
class Refusal : public std::runtime_error {
public:
  Refusal(Status why, const std::string &text, std::string forTheLog = {})
      : std::runtime_error(text), status(why), reason(std::move(forTheLog)) {}

  const Status status;
  const std::string reason; ///< for the holder's log alone
};

/// A configuration, a key or a socket that cannot be used: a sentence for the person who starts the holder.
class Unusable : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace krHolder
