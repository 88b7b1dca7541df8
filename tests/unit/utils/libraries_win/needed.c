/* What dependent.c needs, and does not find. */
__declspec(dllexport) int needed(void) { return 0; }
