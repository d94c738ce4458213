// The DLL entry. Loading starts nothing.
#include "platform/windows/Win32.h"

// The library needs no word of threads. A run-time inside the DLL that keeps data for each thread does: Windows
// goes on telling it, whatever is asked for here.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void * /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    DisableThreadLibraryCalls(module);
  }
  return TRUE;
}
