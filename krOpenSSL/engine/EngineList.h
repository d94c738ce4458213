// Engines in OpenSSL's list.
#pragma once

#include "accessors/krAccessors.h"

#include <krOpenSSL/krHandles.h>

#include <string_view>

namespace krOpenSSL {

/// Has OpenSSL initialised as far as it takes for everything here. False when there is no memory for it, and once
/// OpenSSL has been cleaned up for good, by an exit handler of the host's or by hand: its engine list is gone then,
/// lock and all, and its random method too.
bool opensslIsUsable() noexcept;

/// The engine of that id in OpenSSL's list; null when there is none. Unlike ENGINE_by_id it never searches
/// OpenSSL's module folder, where a stranger of that id may lie.
ENGINEPtr findListedEngine(std::string_view id) noexcept;

/// Takes the engine out of everything that the library registers its own engines for.
void unregisterAlgorithms(ENGINE *engine, void (*unregisterEc)(ENGINE *) = krENGINE_unregister_ECDSA) noexcept;

/// The same, and out of all else that OpenSSL has defaults for.
void unregisterEverything(ENGINE *engine, void (*unregisterEc)(ENGINE *) = krENGINE_unregister_ECDSA) noexcept;

/// Takes the listed engine of that id out of all of OpenSSL's defaults, without a trace. Whoever has OpenSSL load
/// its built-in engines has it register all listed ones again.
void retireListedEngine(std::string_view id) noexcept;

} // namespace krOpenSSL
