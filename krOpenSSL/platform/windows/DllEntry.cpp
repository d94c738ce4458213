// The DLL entry. Loading starts nothing.
#include "platform/windows/Win32.h"

#ifdef __GLIBCXX__
namespace __gnu_cxx {
void __freeres(); // NOLINT(bugprone-reserved-identifier): the run-time library's own
}
#endif

namespace {

// The run-time library inside the DLL keeps memory for exceptions thrown without any, and never gives it back.
void freeRunTime() noexcept {
#ifdef __GLIBCXX__
  __gnu_cxx::__freeres();
#endif
}

} // namespace

// The library needs no word of threads. A run-time inside the DLL that keeps data for each thread does: Windows
// goes on telling it, whatever is asked for here.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void *processEnds) {
  if (reason == DLL_PROCESS_ATTACH) {
    DisableThreadLibraryCalls(module);
  }
  if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) {
    freeRunTime();
  }
  return TRUE;
}
