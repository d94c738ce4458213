// A DLL, and one that needs it.
#ifdef KR_NEEDS_OTHER
__declspec(dllimport) int other();
__declspec(dllexport) int needsOther();
int needsOther() { return other(); }
#else
__declspec(dllexport) int other();
int other() { return 1; }
#endif
