/* A library with the entry points of an engine and of a PKCS#11 module. They are never called. */
__declspec(dllexport) int bind_engine(void) { return 0; }
__declspec(dllexport) unsigned long C_GetFunctionList(void) { return 1; }
