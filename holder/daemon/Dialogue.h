// One connection from its first frame to its last.
#pragma once

#include "Service.h"
#include "wire/Stream.h"

#include <functional>

namespace krHolder {

/// The keys as they are now: another answer after a reload.
using CurrentService = std::function<std::shared_ptr<const Service>()>;

/// Answers what comes until the client closes, or sends something that is malformed or comes out of order.
void converse(const Descriptor &connection, const CurrentService &current) noexcept;

} // namespace krHolder
