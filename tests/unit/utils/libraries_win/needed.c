/* The dependency of dependent.c, which the loader does not find. */
__declspec(dllexport) int needed(void) { return 0; }
