// An ex-data index of OpenSSL's.
#include "accessors/ExDataIndex.h"

#include "accessors/ErrorQueueScope.h"
#include "accessors/ForksWait.h"

namespace krOpenSSL {
namespace {

// A thread's first look at its error queue takes a lock of OpenSSL 3's.
void haveErrorQueue() noexcept {
  const ForksWait wait(ForksWait::indexes);
  static_cast<void>(ERR_get_state());
}

} // namespace

int ExDataIndex::create(int exClass, const char *label) noexcept {
  return newExDataIndex(exClass, 0, const_cast<char *>(label), nullptr, nullptr, nullptr);
}

int ExDataIndex::get() noexcept {
  int index = ifMade();
  if (index != -1) {
    return index;
  }
  haveErrorQueue();
  const ErrorQueueScope errors;
  const int made = create_(exClass_, label_);
  return index_.compare_exchange_strong(index, made, std::memory_order_acq_rel) ? made : index;
}

} // namespace krOpenSSL
