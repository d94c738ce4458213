// The key handle cell that every RSA, DSA and DH object of the bridge carries, and what the three kinds of
// keys do with it alike.
//
// No lock: each operation may replace the module's key in the cell, so one object serves one thread at a time.
#pragma once

#include "accessors/ErrorQueueScope.h"
#include "fipsbridge/qvFipsRand.h"
#include "state/FipsState.h"

#include <openssl/crypto.h>

#include <cstdint>

namespace krOpenSSL {

/// The module when it is ready for key operations: attached, and with its generator instantiated. Else null.
inline const FipsModule *moduleForKeys() noexcept { return qvFipsRandStatus() == 1 ? attachedModule() : nullptr; }

/// Where a kind of key carries its cell, and how the module lets go of the key in it.
template <class Key> struct KeyCells {
  int (*index)() noexcept;
  void *(*get)(Key *key, int index) noexcept;
  int (*set)(Key *key, int index, void *cell);
  int (*FipsModule::*free)(KeyHandleCell *cell);
};

/// The cell of a key; null when it has none, and for a null key.
template <class Key> KeyHandleCell *cellOf(const KeyCells<Key> &cells, Key *key) noexcept {
  return key != nullptr ? static_cast<KeyHandleCell *>(cells.get(key, cells.index())) : nullptr;
}

/// A key's finish function: the module lets go of its key, and the cell is wiped and freed.
template <class Key> int finishCell(const KeyCells<Key> &cells, Key *key) noexcept {
  const ErrorQueueScope errors;
  if (key == nullptr) {
    return 0;
  }
  KeyHandleCell *cell = cellOf(cells, key);
  if (cell == nullptr) {
    return 1;
  }
  if (const FipsModule *module = moduleForKeys(); module != nullptr) {
    (module->*cells.free)(cell);
  }
  OPENSSL_clear_free(cell, sizeof *cell);
  cells.set(key, cells.index(), nullptr);
  return 1;
}

/// A key's init function: attaches a new cell of zeros in place of what is there.
template <class Key> int initCell(const KeyCells<Key> &cells, Key *key) noexcept {
  const int index = cells.index();
  if (finishCell(cells, key) == 0 || index < 0) {
    return 0;
  }
  void *cell = OPENSSL_zalloc(sizeof(KeyHandleCell));
  if (cell == nullptr || cells.set(key, index, cell) == 0) {
    OPENSSL_free(cell);
    return 0;
  }
  return 1;
}

/// Calls an entry that makes the module's key in a cell: they all begin alike.
template <class Entry, class... Arguments>
int makeKey(Entry entry, KeyHandleCell *cell, Arguments... arguments) noexcept {
  return entry(fipsModuleContext, cell, sizeof *cell, fipsGeneratorState, arguments...);
}

/// A length that the module reports, as OpenSSL takes it; -1 when the buffer does not hold as much, since OpenSSL
/// would read beyond it.
constexpr int reportedLength(FipsModule::Length length, FipsModule::Length capacity) noexcept {
  return length >= 0 && length <= capacity ? static_cast<int>(length) : -1;
}

} // namespace krOpenSSL
