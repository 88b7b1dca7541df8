/* A library that would be fine if all that it needs were there. */
__declspec(dllimport) int needed(void);
__declspec(dllexport) int bind_engine(void) { return needed(); }
__declspec(dllexport) unsigned long C_GetFunctionList(void) { return 1; }
