/* A library that cannot be loaded because its dependency is not on the search path. */
__declspec(dllimport) int needed(void);
__declspec(dllexport) int bind_engine(void) { return needed(); }
__declspec(dllexport) unsigned long C_GetFunctionList(void) { return 1; }
