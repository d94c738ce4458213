// The bridge's ex-data indexes: for the key handle cells of keys, and for the methods of an engine object.
// -1 until made; they hold for the life of the process, so a later engine object uses them again.
#pragma once

namespace krOpenSSL {

/// Makes the three indexes of keys that are not there yet.
void makeKeyIndexes() noexcept;

/// The index for engines, made at its first use; -1 when that fails.
int engineIndex() noexcept;

} // namespace krOpenSSL

int qvFipsRsaIndex() noexcept;
int qvFipsDsaIndex() noexcept;
int qvFipsDhIndex() noexcept;
